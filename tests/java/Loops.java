// A debuggee for conditions, hit counts, logpoints and method breakpoints: a
// loop (1,000 rounds unless the first argument says otherwise) that calls
// one overload of a method each round and the other once at the end; and
// LoopsForever, to be attached to while it runs.
public class Loops {
    static long sum;

    public static void main(String[] args) {
        int rounds = args.length > 0 ? Integer.parseInt(args[0]) : 1000;
        Counter counter = new Counter();
        for (int i = 0; i < rounds; i++) {
            counter.add(i);                             // @loops-add
        }
        counter.add("done");                            // @loops-add-text
        System.out.println("loops end " + counter.count + " " + sum);
    }

    // Nested, so that its lines are those of this file's class to an editor.
    static class Counter {
        int count;
        String label = "counter";

        void add(int n) {
            count++;                                    // @counter-add-int
            sum += n;                                   // @counter-sum
        }

        void add(String text) {
            count += text.length();                     // @counter-add-text
        }
    }
}

class LoopsForever {
    public static void main(String[] args) throws Exception {
        Loops.Counter counter = new Loops.Counter();
        System.out.println("loops forever ready");
        for (int i = 0; ; i++) {
            counter.add(i);
            Thread.sleep(10);
        }
    }
}
