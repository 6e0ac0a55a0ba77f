// The fixture of the real-VM session tests: a fresh current handler with an
// event log, a launcher for a test program over the socket transport, and
// waits for stops and for the end that resume past other stops. Resuming
// moves the library's clock past the 2 s in which events after a method
// invocation by the debugger are resumed unreported (an exception stop
// renders its text by invoking toString), so no test waits that out.
#pragma once

#include <gtest/gtest.h>

#include "LiveVM.h"

namespace jdwpkrvdbg::testing {

class LiveSessionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        handler = JDWPHandler::create();
        log = std::make_shared<EventLog>();
        jvm = handler->myJVM();
        jvm->setEvents(log);
    }
    void TearDown() override
    {
        handler->Disconnect();
        jvm.reset();
        handler.reset();
        setCurrentHandler(nullptr);
    }
    // Launches `mainClass` of the test programs with the socket agent.
    bool launch(const std::string& mainClass)
    {
        const int port = freeTcpPort();
        return handler->startVM(javaPath(), socketAgent(port) + " -cp " + testsClassPath() + " " + mainClass, "",
                                false, true, 0, "127.0.0.1", std::to_string(port), true);
    }
    // Waits until more than `count` stops were seen (false at the end or
    // on time-out).
    bool waitStop(size_t count, int timeoutMs = 15000)
    {
        return pumpUntil([&] { return log->stops.size() > count || jvm->JVMState() == VMDead; }, timeoutMs) &&
               log->stops.size() > count;
    }
    bool waitDead() { return pumpUntil([&] { return jvm->JVMState() == VMDead; }, 20000); }
    const EventLog::Stop& lastStop() const { return log->stops.back(); }
    void resumePastInvocationWindow()
    {
        clock.advance(2000);
        jvm->ResumeVM(true);
    }
    // Resumes past other stops until one at `lineNr`.
    bool waitStopAt(int lineNr)
    {
        size_t seen = log->stops.size();
        for (int guard = 0; guard < 10; ++guard) {
            if (!waitStop(seen))
                return false;
            seen = log->stops.size();
            if (lastStop().line == lineNr)
                return true;
            resumePastInvocationWindow();
        }
        return false;
    }
    // Resumes from every further stop until the program ends; the number of
    // stops on the way, -1 on time-out.
    int runToEnd()
    {
        int stops = 0;
        resumePastInvocationWindow();
        for (;;) {
            const size_t seen = log->stops.size();
            if (!pumpUntil([&] { return jvm->JVMState() == VMDead || log->stops.size() > seen; }, 20000))
                return -1;
            if (jvm->JVMState() == VMDead)
                return stops;
            ++stops;
            resumePastInvocationWindow();
        }
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<EventLog> log;
    std::shared_ptr<JXMachine> jvm;
    TickShift clock;
};

} // namespace jdwpkrvdbg::testing
