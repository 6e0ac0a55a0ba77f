// The connect loop against the scripted transport: a started VM that writes
// to its console (the agent's "Listening for transport ..." line) ends the
// loop's 50 ms pause, so the next try comes at once; a VM that stays silent
// is still tried on the 50 ms marks.
#include <gtest/gtest.h>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "ScriptedTransport.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::testing;

namespace {

class ConnectLoop : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        transport = std::make_shared<ScriptedTransport>();
        transport->connectOnRequest = false;
        handler->setTransportFactory([this] { return transport; });
        // Every reading of the clock is a millisecond later: the pause ends
        // by the clock only after 50 readings.
        setTickSource([this] { return ++now; });
    }
    void TearDown() override
    {
        if (idle)
            MessagePump::instance().removeIdle(idle);
        setTickSource(nullptr);
        handler->attachTransport(nullptr);
        handler.reset();
        setCurrentHandler(nullptr);
    }
    // From the first pump pass on, the VM listens; with `announce` it says so
    // on its console.
    void vmListensOnFirstPass(bool announce)
    {
        idle = MessagePump::instance().addIdle([this, announce] {
            if (transport->connectOnRequest)
                return;
            transport->connectOnRequest = true;
            if (announce)
                transport->raisePipe("Listening for transport dt_socket at address: 5005\n");
        });
    }
    bool start()
    {
        return handler->startVM("/usr/bin/java", "-agentlib:jdwp=transport=dt_socket,server=y,suspend=y Main", "",
                                false, true, 0, "127.0.0.1", "5005", true);
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<ScriptedTransport> transport;
    uint32_t now = 1000;
    int idle = 0;
};

TEST_F(ConnectLoop, TheListeningLineEndsThePauseAndTheTryComesAtOnce)
{
    vmListensOnFirstPass(true);
    ASSERT_TRUE(start());
    EXPECT_LT(now - 1000, 50u) << "the first try did not wait for the 50 ms mark";
    // The attempt before the loop (refused) and the one the line brought on.
    EXPECT_EQ(transport->socketConnects.size(), 2u);
}

TEST_F(ConnectLoop, ASilentVMIsTriedOnTheFiftyMillisecondMark)
{
    vmListensOnFirstPass(false);
    ASSERT_TRUE(start());
    EXPECT_GE(now - 1000, 50u);
    EXPECT_EQ(transport->socketConnects.size(), 2u);
}

} // namespace
