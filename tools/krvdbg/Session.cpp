// Starting, waiting on and ending the session that krvdbg drives.
#include "Session.h"

#include "LaunchWords.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>

#include <jdwpkrvdbg/model/JXBreakpoint.h>
#include <jdwpkrvdbg/platform/Clock.h>
#include <jdwpkrvdbg/platform/MessagePump.h>
#include <jdwpkrvdbg/protocol/ByteStrings.h>
#include <jdwpkrvdbg/session/modMain.h>

#include "ClassNames.h"
#include "Interrupt.h"
#include "ProgramClasses.h"
#include "WaitingBreakpoints.h"

namespace krvdbg {

using namespace jdwpkrvdbg;

namespace {

constexpr uint32_t kPumpSliceMs = 50;
// After the VM reported its end, how long the process may take to exit and
// hand over the rest of its console output.
constexpr uint32_t kDrainMs = 5000;

} // namespace

Session::Session(const Options& options, Printer& printer) : options_(options), printer_(printer)
{
    handler_ = JDWPHandler::create();
    events_ = std::make_shared<HostEvents>(printer_, options_.quiet);
    handler_->myJVM()->setEvents(events_);
    events_->setBreakpointQuery([this](const std::string& className, int32_t line) {
        const auto bp = jvm().getBreakPoint(className, line);
        return bp && bp->UsedByVM;
    });
    events_->setStateHook([this](VMState state) { onStateChanged(state); });
    packetObserver_ = handler_->addPacketObserver([this](const PacketEvent& packet) { onPacket(packet); });
    if (options_.trace)
        handler_->history().setListener([this](const std::string& line) { printer_.trace(line); });

    // The program's classes: the main class, the classes in the class
    // path's folders, --target (classes and patterns), and every class named
    // in a breakpoint (added as they come). A launched VM's class path is
    // java's: -cp, else $CLASSPATH, else the current folder.
    if (!options_.mainClass.empty())
        addTarget(ClassNames::toInternal(options_.mainClass));
    std::string classPath = options_.classPath;
    if (classPath.empty() && options_.mode != LaunchMode::Attach) {
        const char* env = std::getenv("CLASSPATH");
        classPath = env && *env ? env : ".";
    }
    if (!classPath.empty()) {
        const ProgramClasses::Found found = ProgramClasses::inFolders(classPath);
        for (const auto& c : found.classes)
            addTarget(c, false);
        if (found.truncated)
            events_->DebugMessage(" *** The class path's folders hold too many files to look at all: classes not "
                                  "found there are the program's only when --target names them");
    }
    for (const auto& t : options_.targets)
        addTarget(ProgramClasses::targetName(t), false);
    jvm().setTargetClassName(targets_);
    // The JDK's own internals are not the program either; the library's
    // defaults name the public packages only.
    auto excludes = jvm().getExcludeClassNames();
    excludes.push_back("jdk.*");
    for (const auto& e : options_.excludes)
        excludes.push_back(e);
    jvm().setExcludeClassName(excludes);
}

Session::~Session()
{
    shutdown();
    handler_->history().setListener(nullptr);
    handler_->removePacketObserver(packetObserver_);
    handler_->myJVM()->setEvents(nullptr);
    handler_.reset();
    setCurrentHandler(nullptr);
}

void Session::onPacket(const PacketEvent& packet)
{
    if (packet.direction == PacketEvent::Direction::Received && packet.reply && packet.errorCode == 0 &&
        packet.commandSet == CMDSET_VirtualMachine && packet.command == VM_RESUME)
        opening_.resumeReplied();
}

void Session::onStateChanged(VMState state)
{
    if (state == VMSuspend)
        opening_.suspended();
}

void Session::noteSuspendAsked()
{
    // The opening is over: a suspension krvdbg asked for is not the VM
    // stopping at its start, and resuming it then would resume the stop
    // the next step or cont is waiting for.
    startResumed_ = true;
}

bool Session::stuckAtStart()
{
    return !startResumed_ && events_->stopCount() == 0 && !ended() && opening_.suspendedAfterReply() &&
           jvm().JVMState() == VMSuspend;
}

void Session::addTarget(const std::string& internalName, bool apply)
{
    if (!targetSet_.insert(internalName).second)
        return;
    targets_.push_back(internalName);
    if (apply)
        jvm().setTargetClassName(targets_);
}

std::string Session::launchParameters(const std::string& agent) const
{
    std::string params = agent;
    for (const auto& o : options_.vmOptions)
        params += " " + quoteWord(o);
    if (!options_.classPath.empty())
        params += " -cp " + quoteWord(options_.classPath);
    params += " " + quoteWord(options_.mainClass);
    for (const auto& a : options_.programArgs)
        params += " " + quoteWord(a);
    return params;
}

bool Session::start()
{
    if (started_)
        return true;
    bool ok = false;
    switch (options_.mode) {
    case LaunchMode::Socket: {
        const int port = freeLocalPort();
        if (port == 0) {
            failureText_ = "no free local TCP port for the debug agent";
            return false;
        }
        const std::string agent =
            "-agentlib:jdwp=transport=dt_socket,server=y,suspend=y,address=127.0.0.1:" + std::to_string(port);
        handler_->bRemoteConnection = true;
        ok = handler_->startVM(options_.javaPath, launchParameters(agent), "", false, true, 0, "127.0.0.1",
                               std::to_string(port), true);
        break;
    }
    case LaunchMode::SharedMemory: {
        const std::string name = "krvdbg-" + std::to_string(::getpid());
        const std::string agent = "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=y";
        // Outgoing packets use the shared-memory framing.
        handler_->bRemoteConnection = false;
        ok = handler_->startVM(options_.javaPath, launchParameters(agent), name, false, true, 0, "", "", false);
        break;
    }
    case LaunchMode::Attach:
        handler_->bRemoteConnection = true;
        ok = handler_->startVM("", "", "", false, false, 0, options_.attachHost, std::to_string(options_.attachPort),
                               true);
        break;
    }
    if (!ok) {
        failureText_ = events_->lastMessage().empty() ? "the VM could not be started or reached"
                                                      : ReplaceAll(events_->lastMessage(), "\r\n", "\n");
        if (options_.mode == LaunchMode::SharedMemory)
            failureText_ += "\n(--shmem needs the library's shared-memory transport and, for the VM, "
                            "libdt_shmem.so next to the library or in JDWPKRVDBG_SHMEM_DIR; "
                            "leave out --shmem to debug over a socket)";
        return false;
    }
    started_ = true;
    return true;
}

bool Session::suspended()
{
    return alive() && events_->suspended();
}

WaitOutcome Session::waitForStop(uint32_t timeoutMs)
{
    auto& pump = MessagePump::instance();
    const uint64_t stops = events_->stopCount();
    const uint32_t start = GetTickCount();
    for (;;) {
        if (events_->stopCount() != stops) {
            // The library records the stop's thread and frame only when the
            // stop changes its VM state, which it does not when the stop
            // was read before the reply to the Resume that led to it; so the
            // stop's place is handed over once more.
            const StopInfo& stop = events_->lastStop();
            if (!ended())
                jvm().GoSilentBreak(stop.threadID, jvm().currentClassID(), jvm().currentMethodID());
            return WaitOutcome::Stopped;
        }
        if (ended())
            return WaitOutcome::Ended;
        if (Interrupt::endingSignal() != 0)
            return WaitOutcome::Ending;
        if (Interrupt::take())
            return WaitOutcome::Interrupted;
        if (stuckAtStart()) {
            startResumed_ = true;
            events_->DebugMessage(" *** The VM stopped at its start after the opening Resume: resuming it");
            jvm().ResumeVM(true);
        }
        const uint32_t elapsed = GetTickCount() - start;
        if (timeoutMs != 0 && elapsed >= timeoutMs)
            return WaitOutcome::TimedOut;
        uint32_t slice = kPumpSliceMs;
        if (timeoutMs != 0 && timeoutMs - elapsed < slice)
            slice = timeoutMs - elapsed;
        pump.pumpOnce(static_cast<int>(slice));
        printer_.flush();
    }
}

bool Session::attachedToRunningProgram()
{
    // The opening sequence is a few round trips; its Resume reply ends it.
    constexpr uint32_t kOpeningMs = 4000;
    MessagePump::instance().pumpUntil([&] { return opening_.replied() || ended(); }, kOpeningMs);
    printer_.flush();
    if (ended() || opening_.suspendedBeforeReply() || events_->stopCount() > 0)
        return false;
    registerWaitingBreakpoints(jvm());
    return true;
}

void Session::pumpFor(uint32_t ms)
{
    auto& pump = MessagePump::instance();
    const uint32_t start = GetTickCount();
    do {
        pump.pumpOnce(static_cast<int>(std::min<uint32_t>(ms, kPumpSliceMs)));
    } while (GetTickCount() - start < ms);
    printer_.flush();
}

void Session::drainAfterEnd()
{
    auto& pump = MessagePump::instance();
    auto transport = handler_->transport();
    if (transport && options_.mode != LaunchMode::Attach)
        pump.pumpUntil([&] { return !transport->ProcessRunning(); }, kDrainMs);
    // Whatever is already queued (the last console text, the close).
    for (int pass = 0; pass < 100 && pump.pumpOnce(0) > 0; ++pass) {}
    printer_.flush();
}

bool Session::mainClassLoaded()
{
    if (options_.mainClass.empty())
        return true;
    return jvm().getClassByName(ClassNames::toInternal(options_.mainClass), false) != nullptr;
}

void Session::shutdown()
{
    if (shutDown_)
        return;
    shutDown_ = true;
    if (started_ && !ended())
        handler_->Disconnect();
    printer_.flush();
}

} // namespace krvdbg
