// A debuggee for conditional breakpoints, hit counts, logpoints and method
// breakpoints: a loop of 1,000 turns over a local int, a String and a field,
// and an overloaded method in a class that loads only when first called.
public class Hits {
    int seen;
    String name = "none";

    public static void main(String[] args) {
        System.out.println("hits start");
        Hits h = new Hits();
        String word = "w";
        for (int i = 0; i < 1000; i++) {
            word = "w" + (i % 10);
            h.seen = i;
            h.name = i == 500 ? "half" : "n" + i;
            h.touch(i, word);                  // @loop-body
        }
        Later.over(1);                          // @call-later
        Later.over(2, "two");
        Later.over("three");
        System.out.println("hits end " + h.seen);
    }

    void touch(int i, String word) {
        seen += 0;                              // @touch-body
    }
}

class Later {
    static int over(int n) {
        return n;                               // @over-int
    }

    static int over(int n, String s) {
        return n + s.length();                  // @over-int-string
    }

    static int over(String s) {
        return s.length();                      // @over-string
    }
}
