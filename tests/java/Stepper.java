// A debuggee for breakpoints, stop points and steps: a class that loads late,
// calls three levels deep, a library call, exceptions caught in the same and
// in another class, and the runtime's debug print.
public class Stepper {
    static int total;

    public static void main(String[] args) throws Exception {
        System.out.println("stepper start");
        int a = 2;                              // @main-a
        int b = Late.twice(a);                  // @main-call
        total = a + b;                          // @main-after
        String s = String.valueOf(total);       // @main-lib
        System.out.println("total " + s);       // @main-print
        Late.deep(1);                           // @main-deep
        try {
            Thrower.fail("boom");               // @main-catch-other
        } catch (IllegalStateException e) {
            System.out.println("caught " + e.getMessage());
        }
        try {
            Thrower.failOnLastLine("quiet");    // @main-catch-last
        } catch (IllegalArgumentException e) {
            System.out.println("caught " + e.getMessage());
        }
        Thrower.selfCaught();                   // @main-self
        VB.Debug.Print("\"Hello debug\"");      // @main-debug
        for (int i = 0; i < 3; i++) {           // @main-for
            total += i;                         // @main-loop
        }
        System.out.println("stepper end");      // @main-end
    }
}

class Late {
    static int twice(int x) {
        int r = x * 2;                          // @twice-body
        return r;                               // @twice-return
    }

    static int deep(int n) {
        return deeper(n + 1);                   // @deep-body
    }

    static int deeper(int n) {
        return deepest(n + 1);                  // @deeper-body
    }

    static int deepest(int n) {
        int r = n * 10;                         // @deepest-body
        return r;
    }
}

class Thrower {
    static void fail(String why) {
        if (why != null)
            throw new IllegalStateException(why); // @fail-throw
        total2 = -1;
    }

    // The throw is on the method's last line: its code index lies after the
    // last line-table entry, which maps to no source line.
    static void failOnLastLine(String why) {
        throw new IllegalArgumentException(why); // @fail-last
    }

    static void selfCaught() {
        try {
            throw new RuntimeException("inside"); // @self-throw
        } catch (RuntimeException e) {
            total2 = 1;
        }
    }

    static int total2;
}
