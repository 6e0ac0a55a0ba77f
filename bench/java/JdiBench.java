// The anchor of the benchmarks: the same work as the C++ rows, done through
// the JDK's own debugger interface (JDI), the way an IDE written in Java
// does it. The debuggee is started with JDI's launching connector. Samples
// are printed in microseconds as "SAMPLES <name> <v1> <v2> ...", single
// figures as "VALUE <name> <v>", for the C++ row programs to read.
//
//   java JdiBench step   cp=... line=... n=... warm=...
//   java JdiBench values cp=... line=... n=... warm=...
//   java JdiBench conditional|logpoint cp=... line=... n=... warm=... batch=...
//   java JdiBench launch cp=... line=... n=...
//   java JdiBench storm  cp=... class=... line=... n=... [extra=Class:line,...] [rss=1]
//   java JdiBench dap    cp=... line=... n=... warm=...   (JdiDapBench.java)
import com.sun.jdi.Bootstrap;
import com.sun.jdi.Field;
import com.sun.jdi.LocalVariable;
import com.sun.jdi.Location;
import com.sun.jdi.Method;
import com.sun.jdi.ObjectReference;
import com.sun.jdi.ReferenceType;
import com.sun.jdi.StackFrame;
import com.sun.jdi.StringReference;
import com.sun.jdi.ThreadReference;
import com.sun.jdi.Value;
import com.sun.jdi.VirtualMachine;
import com.sun.jdi.connect.Connector;
import com.sun.jdi.connect.LaunchingConnector;
import com.sun.jdi.event.BreakpointEvent;
import com.sun.jdi.event.ClassPrepareEvent;
import com.sun.jdi.event.Event;
import com.sun.jdi.event.EventSet;
import com.sun.jdi.event.StepEvent;
import com.sun.jdi.event.VMDeathEvent;
import com.sun.jdi.event.VMDisconnectEvent;
import com.sun.jdi.request.BreakpointRequest;
import com.sun.jdi.request.ClassPrepareRequest;
import com.sun.jdi.request.EventRequest;
import com.sun.jdi.request.EventRequestManager;
import com.sun.jdi.request.ExceptionRequest;
import com.sun.jdi.request.StepRequest;

import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

public class JdiBench {
    // The library's default exclusion patterns; the requests that carry them
    // there carry them here too.
    static final String[] EXCLUDES = {"java.*", "javax.*", "sun.*", "com.sun.*", "VBA.*", "Form"};

    static Map<String, String> opts = new HashMap<>();

    static String opt(String name, String fallback) {
        return opts.getOrDefault(name, fallback);
    }

    static int intOpt(String name, int fallback) {
        return Integer.parseInt(opt(name, Integer.toString(fallback)));
    }

    public static void main(String[] args) throws Exception {
        for (int i = 1; i < args.length; ++i) {
            int eq = args[i].indexOf('=');
            if (eq > 0)
                opts.put(args[i].substring(0, eq), args[i].substring(eq + 1));
        }
        switch (args.length > 0 ? args[0] : "") {
            case "step": step(); break;
            case "values": values(); break;
            case "conditional": hits(false); break;
            case "logpoint": hits(true); break;
            case "launch": launch(); break;
            case "storm": storm(); break;
            case "dap": JdiDapBench.run(); break;
            default:
                System.out.println("usage: JdiBench step|values|launch|storm|dap key=value...");
                System.exit(2);
        }
        System.out.println("DONE");
        System.out.flush();
        System.exit(0);
    }

    static void print(String name, List<Double> samples) {
        StringBuilder sb = new StringBuilder("SAMPLES ").append(name);
        for (double s : samples)
            sb.append(' ').append(String.format("%.1f", s));
        System.out.println(sb);
        System.out.flush();
    }

    static double us(long t0, long t1) {
        return (t1 - t0) / 1000.0;
    }

    // The debuggee's output is drained so that it never blocks on a full pipe.
    static void drain(InputStream in) {
        Thread t = new Thread(() -> {
            byte[] buf = new byte[4096];
            try {
                while (in.read(buf) >= 0) {
                }
            } catch (Exception e) {
            }
        });
        t.setDaemon(true);
        t.start();
    }

    static VirtualMachine launchVM(String mainClass) throws Exception {
        LaunchingConnector connector = Bootstrap.virtualMachineManager().defaultConnector();
        Map<String, Connector.Argument> a = connector.defaultArguments();
        a.get("main").setValue(mainClass);
        a.get("options").setValue("-cp " + opt("cp", "."));
        VirtualMachine vm = connector.launch(a);
        drain(vm.process().getInputStream());
        drain(vm.process().getErrorStream());
        return vm;
    }

    static void kill(VirtualMachine vm) throws Exception {
        Process p = vm.process();
        try {
            vm.dispose();
        } catch (Exception e) {
        }
        p.destroyForcibly();
        p.waitFor();
    }

    // Runs the debuggee to a breakpoint at `line` of `cls`, set when the
    // class is prepared; answers the event (the VM stays suspended).
    static BreakpointEvent runToBreakpoint(VirtualMachine vm, String cls, int line) throws Exception {
        EventRequestManager erm = vm.eventRequestManager();
        ClassPrepareRequest prepare = erm.createClassPrepareRequest();
        prepare.addClassFilter(cls);
        prepare.setSuspendPolicy(EventRequest.SUSPEND_ALL);
        prepare.enable();
        // The VM waits suspended at its start event; resuming that event's
        // set (below, with every other set) lets it run. A resume of our own
        // here as well would undo the suspension of a later event.
        for (;;) {
            EventSet set = vm.eventQueue().remove();
            boolean resume = true;
            for (Event e : set) {
                if (e instanceof ClassPrepareEvent) {
                    ReferenceType type = ((ClassPrepareEvent) e).referenceType();
                    Location at = type.locationsOfLine(line).get(0);
                    BreakpointRequest bp = erm.createBreakpointRequest(at);
                    bp.setSuspendPolicy(EventRequest.SUSPEND_ALL);
                    bp.enable();
                } else if (e instanceof BreakpointEvent) {
                    return (BreakpointEvent) e;
                } else if (e instanceof VMDeathEvent || e instanceof VMDisconnectEvent) {
                    throw new IllegalStateException("the VM ended before the breakpoint");
                }
            }
            if (resume)
                set.resume();
        }
    }

    // Line steps over, one new step request per step (deleted when the next
    // one is made), as an IDE does.
    static void step() throws Exception {
        int n = intOpt("n", 3000), warm = intOpt("warm", 200);
        VirtualMachine vm = launchVM("BenchTarget");
        BreakpointEvent stop = runToBreakpoint(vm, "BenchTarget", intOpt("line", 0));
        EventRequestManager erm = vm.eventRequestManager();
        erm.deleteEventRequest(stop.request());
        ThreadReference thread = stop.thread();
        List<Double> samples = new ArrayList<>();
        StepRequest previous = null;
        for (int i = 0; i < warm + n; ++i) {
            long t0 = System.nanoTime();
            if (previous != null)
                erm.deleteEventRequest(previous);
            StepRequest r = erm.createStepRequest(thread, StepRequest.STEP_LINE, StepRequest.STEP_OVER);
            for (String x : EXCLUDES)
                r.addClassExclusionFilter(x);
            r.setSuspendPolicy(EventRequest.SUSPEND_ALL);
            r.enable();
            vm.resume();
            EventSet set = vm.eventQueue().remove();
            long t1 = System.nanoTime();
            boolean stepped = false;
            for (Event e : set)
                stepped |= e instanceof StepEvent;
            if (!stepped)
                throw new IllegalStateException("not a step event: " + set);
            previous = r;
            if (i >= warm)
                samples.add(us(t0, t1));
        }
        print("step_over", samples);
        kill(vm);
    }

    static void values() throws Exception {
        int n = intOpt("n", 2000), warm = intOpt("warm", 200);
        VirtualMachine vm = launchVM("BenchTarget");
        BreakpointEvent stop = runToBreakpoint(vm, "BenchTarget", intOpt("line", 0));
        ThreadReference thread = stop.thread();

        timed("value_local", warm, n, () -> {
            StackFrame f = thread.frame(0);
            LocalVariable v = f.visibleVariableByName("i");
            return "i: " + f.getValue(v);
        });
        timed("value_field", warm, n, () -> {
            StackFrame f = thread.frame(0);
            ObjectReference p = (ObjectReference) f.getValue(f.visibleVariableByName("p"));
            Field fx = p.referenceType().fieldByName("x");
            return "p.x: " + p.getValue(fx);
        });
        StackFrame f = thread.frame(0);
        ObjectReference p = (ObjectReference) f.getValue(f.visibleVariableByName("p"));
        String text = timed("tostring", warm, n, () -> {
            Method m = p.referenceType().methodsByName("toString", "()Ljava/lang/String;").get(0);
            Value r = p.invokeMethod(thread, m, new ArrayList<Value>(), 0);
            return ((StringReference) r).value();
        });
        if (!text.startsWith("BenchPoint("))
            throw new IllegalStateException("toString gave " + text);
        kill(vm);
    }

    // A breakpoint hit as an IDE's conditional breakpoint or logpoint handles
    // it: the event, the top frame, the local's value, then the compare
    // (i == -1, never true) or the printed value, and the resume. Samples
    // are the time per hit over batches of `batch` hits.
    static void hits(boolean print) throws Exception {
        int n = intOpt("n", 1000), warm = intOpt("warm", 1500), batch = intOpt("batch", 100);
        VirtualMachine vm = launchVM("BenchTarget");
        BreakpointEvent stop = runToBreakpoint(vm, "BenchTarget", intOpt("line", 0));
        List<Double> samples = new ArrayList<>();
        List<String> printed = new ArrayList<>();
        vm.resume();
        long t0 = System.nanoTime();
        for (int i = 0; i < warm + n; ++i) {
            EventSet set = vm.eventQueue().remove();
            for (Event e : set) {
                if (!(e instanceof BreakpointEvent))
                    continue;
                StackFrame f = ((BreakpointEvent) e).thread().frame(0);
                Value v = f.getValue(f.visibleVariableByName("i"));
                if (print)
                    printed.add(String.valueOf(v));
                else if (((com.sun.jdi.IntegerValue) v).value() == -1)
                    throw new IllegalStateException("i is -1");
            }
            set.resume();
            if (i >= warm && (i - warm + 1) % batch == 0) {
                long t1 = System.nanoTime();
                samples.add(us(t0, t1) / batch);
                t0 = t1;
            } else if (i < warm) {
                t0 = System.nanoTime();
            }
        }
        print(print ? "logpoint_hit" : "conditional_false_hit", samples);
        if (print && printed.size() != warm + n)
            throw new IllegalStateException("printed " + printed.size());
        kill(vm);
    }

    interface Call {
        String run() throws Exception;
    }

    // Runs `call` warm + n times and prints the times of the last n as `row`;
    // answers the last result.
    static String timed(String row, int warm, int n, Call call) throws Exception {
        List<Double> samples = new ArrayList<>();
        String text = "";
        for (int i = 0; i < warm + n; ++i) {
            long t0 = System.nanoTime();
            text = call.run();
            long t1 = System.nanoTime();
            if (i >= warm)
                samples.add(us(t0, t1));
        }
        print(row, samples);
        return text;
    }

    // Process start to the breakpoint event, the breakpoint set when its
    // class is prepared.
    static void launch() throws Exception {
        int n = intOpt("n", 7);
        int line = intOpt("line", 0);
        List<Double> samples = new ArrayList<>();
        for (int i = 0; i < n + 1; ++i) {
            long t0 = System.nanoTime();
            VirtualMachine vm = launchVM("BenchHello");
            runToBreakpoint(vm, "BenchHello", line);
            long t1 = System.nanoTime();
            kill(vm);
            // The first run loads and compiles JDI itself; it is a warm-up.
            if (i > 0)
                samples.add(us(t0, t1));
        }
        print("launch_to_bp", samples);
    }

    // The class-prepare storm with the requests the library makes: a
    // class-prepare request for everything not excluded (and one for the
    // runtime's debug class), an exception request, an exception request per
    // prepared class, and the waiting breakpoints set as their classes come.
    static void storm() throws Exception {
        int n = intOpt("n", 5);
        String bpClass = opt("class", "S1999");
        int bpLine = intOpt("line", 0);
        Map<String, List<Integer>> waiting = new HashMap<>();
        waiting.computeIfAbsent(bpClass, k -> new ArrayList<>()).add(bpLine);
        String extra = opt("extra", "");
        if (!extra.isEmpty()) {
            for (String item : extra.split(",")) {
                int colon = item.lastIndexOf(':');
                waiting.computeIfAbsent(item.substring(0, colon), k -> new ArrayList<>())
                        .add(Integer.parseInt(item.substring(colon + 1)));
            }
        }
        List<Double> samples = new ArrayList<>();
        int prepared = 0;
        for (int run = 0; run < n + 1; ++run) {
            long t0 = System.nanoTime();
            VirtualMachine vm = launchVM(opt("main", "Storm"));
            EventRequestManager erm = vm.eventRequestManager();
            ExceptionRequest ex = erm.createExceptionRequest(null, true, true);
            for (String x : EXCLUDES)
                ex.addClassExclusionFilter(x);
            ex.setSuspendPolicy(EventRequest.SUSPEND_ALL);
            ex.enable();
            ClassPrepareRequest all = erm.createClassPrepareRequest();
            for (String x : EXCLUDES)
                all.addClassExclusionFilter(x);
            all.setSuspendPolicy(EventRequest.SUSPEND_ALL);
            all.enable();
            ClassPrepareRequest debug = erm.createClassPrepareRequest();
            debug.addClassFilter("VB.Debug");
            debug.setSuspendPolicy(EventRequest.SUSPEND_ALL);
            debug.enable();
            // The start event's set is resumed in the loop, as every other.
            boolean stopped = false;
            prepared = 0;
            while (!stopped) {
                EventSet set = vm.eventQueue().remove();
                for (Event e : set) {
                    if (e instanceof ClassPrepareEvent) {
                        ++prepared;
                        ReferenceType type = ((ClassPrepareEvent) e).referenceType();
                        String name = type.name();
                        List<Integer> lines = waiting.get(name);
                        if (lines != null) {
                            for (int l : lines) {
                                BreakpointRequest bp = erm.createBreakpointRequest(type.locationsOfLine(l).get(0));
                                bp.setSuspendPolicy(EventRequest.SUSPEND_ALL);
                                bp.enable();
                            }
                        }
                        if (!name.contains("$")) {
                            ExceptionRequest own = erm.createExceptionRequest(null, true, true);
                            own.addClassFilter(name);
                            own.setSuspendPolicy(EventRequest.SUSPEND_ALL);
                            own.enable();
                        }
                    } else if (e instanceof BreakpointEvent) {
                        stopped = true;
                    } else if (e instanceof VMDeathEvent || e instanceof VMDisconnectEvent) {
                        throw new IllegalStateException("the VM ended before the breakpoint");
                    }
                }
                if (!stopped)
                    set.resume();
            }
            long t1 = System.nanoTime();
            kill(vm);
            if (run > 0)
                samples.add(us(t0, t1));
        }
        print("storm", samples);
        System.out.println("VALUE prepared " + prepared);
        if (!opt("rss", "").isEmpty())
            System.out.println("VALUE rss_kb " + peakRssKb());
    }

    static long peakRssKb() throws Exception {
        for (String l : Files.readAllLines(Paths.get("/proc/self/status"))) {
            if (l.startsWith("VmHWM:"))
                return Long.parseLong(l.replaceAll("[^0-9]", ""));
        }
        return 0;
    }
}
