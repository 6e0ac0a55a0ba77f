// A debuggee for stepping into library code: lib.Churn is not one of its
// target classes; it runs thousands of lines and calls back into this
// program through a lambda and through a listener class.
public class LibUser {
    static int calls;

    public static void main(String[] args) {
        System.out.println("libuser start");
        long a = lib.Churn.churn(5000, null);                 // @lu-plain
        a += lib.Churn.churn(5000, null);                     // @lu-plain-again
        long b = lib.Churn.churn(5000, () -> {                // @lu-lambda
            calls++;                                          // @lu-lambda-body
        });
        Runnable listener = new UserListener();
        long c = lib.Churn.churn(5000, listener);             // @lu-listener
        System.out.println("libuser end " + (a + b + c + calls)); // @lu-end
        if (args.length > 0) {
            // The step benchmark: the same call again and again, stepped
            // into and stepped over in turn.
            for (;;) {
                long d = lib.Churn.churn(5000, null);         // @lu-bench
                calls += (int) (d & 1);                       // @lu-bench-next
            }
        }
    }
}

class UserListener implements Runnable {
    @Override
    public void run() {
        LibUser.calls += 2;                                   // @lu-listener-body
    }
}
