// A debuggee for the fault and soak tests: a hot loop that a breakpoint
// stops in as often as the test likes and that steps go round in, then a
// call to step over that takes a minute, and an object whose property
// getter takes a minute, so the VM can be killed while a step or an
// evaluation is under way.
public class Soak {
    static long sum;

    public static void main(String[] args) throws Exception {
        long rounds = args.length > 0 ? Long.parseLong(args[0]) : 10;
        for (long i = 0; i < rounds; i++) {
            sum += i;                                   // @soak-hit
            sum ^= i >> 3;                              // @soak-next
        }
        Slow slow = new Slow();
        slow.pause(60000);                              // @soak-slow-call
        System.out.println("soak end " + sum);
    }
}

class Slow {
    void pause(long ms) {
        try {
            Thread.sleep(ms);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    // A property getter as the runtime names it; reading "slow.title"
    // invokes it.
    String $title() {
        pause(60000);
        return "late";
    }
}
