// The fixture of the real-VM session tests: a fresh current handler with an
// event log, launchers for a test program over the socket and the
// shared-memory transport, and waits for stops and for the end that resume
// past other stops. The library's clock is a shifted one that tests may move
// on (time-outs then cost no real time). A fixture made with the test
// program's source file finds its lines by their "// @marker" comments.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "LiveVM.h"

namespace jdwpkrvdbg::testing {

class LiveSessionTest : public ::testing::Test {
protected:
    explicit LiveSessionTest(std::string source = "") : source_(std::move(source)) {}
    int lineAt(const std::string& marker) const { return lineOf(source_, "// " + marker); }
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
        jvm->setEvents(nullptr);
        jvm.reset();
        handler.reset();
        setCurrentHandler(nullptr);
    }
    // Launches `mainClass` (with arguments) of the test programs.
    bool launch(const std::string& mainClass)
    {
        const int port = freeTcpPort();
        handler->bRemoteConnection = true;
        return handler->startVM(javaPath(), socketAgent(port) + " -cp " + testsClassPath() + " " + mainClass, "", false,
                                true, 0, "127.0.0.1", std::to_string(port), true);
    }
    bool launchShmem(const std::string& sharedName, const std::string& mainClass)
    {
        handler->bRemoteConnection = false;
        return handler->startVM(javaPath(),
                                "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=y -cp " +
                                    testsClassPath() + " " + mainClass,
                                sharedName, false, true);
    }
    std::string dump() const { return handler->history().dump(); }
    // Waits until more than `count` stops were seen (false at the end or
    // on time-out).
    bool waitStop(size_t count, int timeoutMs = 15000)
    {
        return pumpUntil([&] { return log->stops.size() > count || jvm->JVMState() == VMDead; }, timeoutMs) &&
               log->stops.size() > count;
    }
    bool waitDead()
    {
        return pumpUntil([&] { return jvm->JVMState() == VMDead; }, 20000);
    }
    const EventLog::Stop& lastStop() const { return log->stops.back(); }
    void resume() { jvm->ResumeVM(true); }
    // Resumes and waits for the next stop (false at the end or on time-out).
    bool resumeToNextStop()
    {
        const size_t seen = log->stops.size();
        resume();
        return waitStop(seen);
    }
    // Resumes past other stops until one at `lineNr`.
    bool resumeToStopAt(int lineNr)
    {
        for (int guard = 0; guard < 10; ++guard) {
            if (!resumeToNextStop())
                return false;
            if (lastStop().line == lineNr)
                return true;
        }
        return false;
    }
    // Resumes from every further stop until the program ends; the number of
    // stops on the way, -1 on time-out.
    int runToEnd()
    {
        resume();
        return stopsUntilEnd();
    }
    // Waits for each next stop or the end, runs `atStop` at each stop (the
    // last one in the log) and resumes; the number of stops, -1 on time-out.
    int stopsUntilEnd(const std::function<void()>& atStop = {})
    {
        int stops = 0;
        for (;;) {
            const size_t seen = log->stops.size();
            if (!pumpUntil([&] { return jvm->JVMState() == VMDead || log->stops.size() > seen; }, 30000))
                return -1;
            if (jvm->JVMState() == VMDead)
                return stops;
            ++stops;
            if (atStop)
                atStop();
            resume();
        }
    }

    std::shared_ptr<JDWPHandler> handler;
    std::shared_ptr<EventLog> log;
    std::shared_ptr<JXMachine> jvm;
    TickShift clock;

private:
    std::string source_;
};

} // namespace jdwpkrvdbg::testing
