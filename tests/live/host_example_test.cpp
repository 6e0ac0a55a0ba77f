// The README's host example ("Using the library from a host"), compiled and
// run against a real VM debugging the demo shop. Its host reads a value in
// the Breakpoint handler and resumes from inside it, as a logpoint or a
// conditional breakpoint does; the handler must read the stop's own values,
// and the VM state must follow the program through every such resume.
// Host and session code are the README's, word for word; the test only
// watches them (Watched) and bounds the final wait.
#include <gtest/gtest.h>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>
#include <tuple>

#include "LiveVM.h"

using namespace jdwpkrvdbg;

namespace {

// --- from the README ---
struct Host : JXMachineEvents {
    std::vector<std::string> names; // what the logpoint saw
    void Breakpoint(double thread, const std::string& cls, int32_t line, int32_t offset) override
    {
        auto jvm = getCurrentHandler()->myJVM();
        names.push_back(jvm->getValue("item.name")); // "#item.name: apple#\r\nitem: Type: ..."
        jvm->ResumeVM(true);                         // a logpoint: on at once
    }
    void ConsoleMessage(const std::string& text) override { std::fputs(text.c_str(), stdout); }
};
// --- end of the README's host ---

struct Watched : Host {
    std::vector<std::tuple<VMState, bool, int32_t>> atStops; // the state, whether the thread is the stop's, the line
    std::vector<VMState> states;
    std::vector<std::string> exceptions;
    void Breakpoint(double thread, const std::string& cls, int32_t line, int32_t offset) override
    {
        auto jvm = getCurrentHandler()->myJVM();
        atStops.emplace_back(jvm->JVMState(), jvm->currentThreadID() == thread, line);
        Host::Breakpoint(thread, cls, line, offset);
    }
    void VMStateChanged(VMState s) override { states.push_back(s); }
    void Exception(const std::string& s) override { exceptions.push_back(s); }
};

TEST(HostExample, ReadsTheStopsValuesAndResumesFromItsHandlerWhileTheStateFollowsTheProgram)
{
    const std::string java = jdwpkrvdbg::testing::javaPath(), port = std::to_string(jdwpkrvdbg::testing::freeTcpPort()),
                      classes = jdwpkrvdbg::testing::examplesClassPath();

    // --- from the README ---
    auto handler = JDWPHandler::create(); // the process-wide current session
    auto jvm = handler->myJVM();
    auto host = std::make_shared<Watched>(); // README: std::make_shared<Host>()
    jvm->setEvents(host);
    jvm->setTargetClassName({"demo/Shop", "demo/Cart"}); // the program's classes (internal names)
    jvm->addBreakpoint("demo/Cart", 17);                 // kept until the class loads
    handler->bRemoteConnection = true;                   // socket framing for outgoing packets
    handler->startVM(java,
                     "-agentlib:jdwp=transport=dt_socket,server=y,suspend=y,address=127.0.0.1:" + port + " -cp " +
                         classes + " demo.Shop",
                     "", false, true, 0, "127.0.0.1", port, true);
    // README: while (jvm->JVMState() != VMDead) MessagePump::instance().pumpOnce(10);
    // --- end of the README's session ---
    ASSERT_EQ(jdwpkrvdbg::testing::lineOf("examples/demo/Cart.java", "// @cart-store"), 17);
    EXPECT_TRUE(jdwpkrvdbg::testing::pumpUntil([&] { return jvm->JVMState() == VMDead; }, 30000))
        << handler->history().dump();

    // Three items are stored at line 17; the fourth is refused by an
    // exception thrown at line 15 and caught by the shop: a stop as well.
    const char* const expected[] = {"apple", "bread", "cheese", "dates"};
    ASSERT_EQ(host->names.size(), std::size(expected)) << handler->history().dump();
    for (size_t i = 0; i < std::size(expected); ++i) {
        SCOPED_TRACE(expected[i]);
        EXPECT_EQ(host->names[i].rfind("#item.name: " + std::string(expected[i]) + "#\r\n", 0), 0u) << host->names[i];
        // The handler runs at a suspended VM, with the stop's thread current.
        EXPECT_EQ(host->atStops[i], std::make_tuple(VMSuspend, true, i < 3 ? 17 : 15));
    }
    // Resumed from inside each handler, the VM is reported running again
    // after every stop, and never suspended while the program runs to its
    // end.
    ASSERT_GE(host->states.size(), 3u);
    EXPECT_EQ(host->states.front(), VMRunning);
    EXPECT_EQ(std::vector(host->states.end() - 3, host->states.end()),
              (std::vector<VMState>{VMSuspend, VMRunning, VMDead}));
    for (size_t i = 1; i < host->states.size(); ++i)
        EXPECT_NE(host->states[i], host->states[i - 1]) << "at " << i;
    // The exception's text is read at its stop although the host resumed
    // from the stop's handler before the Exception event.
    EXPECT_EQ(host->exceptions, std::vector<std::string>{
                                    "demo/CartFullException\r\ndemo.CartFullException: the cart holds only 3 items"});

    handler->Disconnect();
    jvm->setEvents(nullptr);
    setCurrentHandler(nullptr);
}

} // namespace
