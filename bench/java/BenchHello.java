// The debuggee of the launch benchmark: the breakpoint waits on the first
// line of main, set before this class is loaded.
public class BenchHello {
    public static void main(String[] args) {
        int n = args.length; // @hello-first
        System.out.println("bench hello " + n);
    }
}
