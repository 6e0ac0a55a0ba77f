// A debuggee for lines that belong to classes other than the file's own:
// a static nested class, an inner class, an anonymous class and a lambda;
// for output on both streams; and, with the argument "throw", an exception
// that nothing catches.
import java.util.function.IntUnaryOperator;

public class Nested {
    static class Counter {
        int count;

        int add(int n) {
            count += n;                                   // @nested-add
            return count;
        }
    }

    class Inner {
        int twice(int n) {
            return n * 2;                                 // @inner-twice
        }
    }

    public static void main(String[] args) {
        Counter c = new Counter();
        c.add(2);
        int t = new Nested().new Inner().twice(c.count);
        Runnable hello = new Runnable() {
            public void run() {
                System.out.println("anonymous runs");     // @anonymous-run
            }
        };
        hello.run();
        IntUnaryOperator square = v -> {
            int r = v * v;                                // @lambda-body
            return r;
        };
        int s = square.applyAsInt(t);
        System.out.println("square " + s);
        System.err.println("nested to stderr");
        if (args.length > 0 && args[0].equals("throw"))
            throw new IllegalStateException("nobody catches " + s); // @uncaught
        System.out.println("nested end");
    }
}
