// The JDI side of the adapter benchmarks, run as "java JdiBench dap ...": at
// each stop of DapTarget, what an IDE written in Java does to show the top
// frame's variables (the thread's frames, the visible variables, their
// values, one string's text), then the values of the 1,000 fields of its
// Wide object; and this process's resident memory at the last stop.
//
//   java JdiBench dap cp=... line=... n=... warm=...
import com.sun.jdi.Field;
import com.sun.jdi.LocalVariable;
import com.sun.jdi.ObjectReference;
import com.sun.jdi.StackFrame;
import com.sun.jdi.StringReference;
import com.sun.jdi.Value;
import com.sun.jdi.VirtualMachine;
import com.sun.jdi.event.BreakpointEvent;
import com.sun.jdi.event.Event;
import com.sun.jdi.event.EventSet;

import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;

class JdiDapBench {
    static void run() throws Exception {
        int n = JdiBench.intOpt("n", 30), warm = JdiBench.intOpt("warm", 5);
        VirtualMachine vm = JdiBench.launchVM("DapTarget " + (warm + n + 1));
        BreakpointEvent stop = JdiBench.runToBreakpoint(vm, "DapTarget", JdiBench.intOpt("line", 0));
        List<Double> variables = new ArrayList<>(), fields = new ArrayList<>();
        String text = "";
        int fieldCount = 0;
        for (int i = 0; i < warm + n; ++i) {
            long t0 = System.nanoTime();
            StackFrame top = stop.thread().frames().get(0);
            List<LocalVariable> visible = top.visibleVariables();
            Map<LocalVariable, Value> values = top.getValues(visible);
            ObjectReference wide = null;
            for (Map.Entry<LocalVariable, Value> e : values.entrySet()) {
                if (e.getValue() instanceof StringReference)
                    text = e.getValue().toString();
                if (e.getKey().name().equals("wide"))
                    wide = (ObjectReference) e.getValue();
            }
            long t1 = System.nanoTime();
            List<Field> all = wide.referenceType().allFields();
            Map<Field, Value> got = wide.getValues(all);
            long t2 = System.nanoTime();
            fieldCount = got.size();
            if (i >= warm) {
                variables.add(JdiBench.us(t0, t1));
                fields.add(JdiBench.us(t1, t2));
            }
            if (i + 1 == warm + n)
                System.out.println("VALUE rss_kb " + rssKb());
            vm.resume();
            stop = nextBreakpoint(vm);
        }
        if (!text.contains("round ") || fieldCount != 1000)
            throw new IllegalStateException("read " + text + " and " + fieldCount + " fields");
        JdiBench.print("dap_stop_to_variables", variables);
        JdiBench.print("dap_expand_1000_fields", fields);
        JdiBench.kill(vm);
    }

    static BreakpointEvent nextBreakpoint(VirtualMachine vm) throws Exception {
        for (;;) {
            EventSet set = vm.eventQueue().remove();
            for (Event e : set)
                if (e instanceof BreakpointEvent)
                    return (BreakpointEvent) e;
            set.resume();
        }
    }

    static long rssKb() throws Exception {
        for (String l : Files.readAllLines(Paths.get("/proc/self/status")))
            if (l.startsWith("VmRSS:"))
                return Long.parseLong(l.replaceAll("[^0-9]", ""));
        return 0;
    }
}
