// A debuggee for value inspection: locals of every primitive type, strings,
// objects with fields and getters, statics, arrays, null, and stand-ins of
// the Korvane runtime's variant, array and enumeration wrappers; an object
// whose toString never returns; and a Thread subclass stopped in its run().
public class Values {
    static int counter = 42;
    static String label = "static label";
    // Same name as a parameter of the level methods.
    static int x = 1000;

    static String greeting() {
        return "hello";
    }

    public static void main(String[] args) throws InterruptedException {
        int i = -7;
        long l = 1234567890123L;
        double d = 2.5;
        float f = 1.5f;
        double notANumber = Double.NaN;
        double negInf = -1.0 / 0;
        float posInf = Float.POSITIVE_INFINITY;
        char c = 'A';
        boolean z = true;
        byte by = 12;
        short sh = -300;
        String str = "Grüße 😀";
        Point p = new Point(3, 4, "pt");
        int[] arr = {1, 2, 3};
        Object nothing = null;
        String hashes = "a#b#c";
        String longText = "0123456789".repeat(100);
        Box.VBVariantBox v = new Box.VBVariantBox("var#iant");
        Box.VBArrayBox va = new Box.VBArrayBox();
        Colors col = new Colors();
        Spinner spin = new Spinner();
        System.out.println("values ready");                 // @values-stop
        int r = level1(i);
        System.out.println("result " + r + " " + p.getName() + v + va + col + nothing + str + notANumber + negInf
                + posInf);
        Worker worker = new Worker(p);
        worker.start();
        worker.join();
    }

    static int level1(int x) {
        int r = level2(x + 1) + 1;                           // @level1
        return r;
    }

    static int level2(int x) {
        int r = level3(x + 1) + 1;                           // @level2
        return r;
    }

    static int level3(int x) {
        int y = x * 2;                                       // @level3
        return y;
    }
}

class Point {
    int x;
    int y;
    String name;
    static int created;

    Point(int x, int y, String name) {
        this.x = x;
        this.y = y;
        this.name = name;
        created++;
    }

    String getName() {
        return "name:" + name;
    }

    // A property getter as the runtime names it.
    String $title() {
        String result = "title:" + name;                     // @getter
        return result;
    }

    @Override
    public String toString() {
        return "Point(" + x + "," + y + ")";
    }
}

class Box {
    static class VBVariantBox {
        final String text;

        VBVariantBox(String text) {
            this.text = text;
        }

        public String toDebugString() {
            return "\"" + text + "\"";
        }
    }

    static class VBArrayBox {
        public String toDebugString() {
            return "(0) = 1#(1) = 2";
        }
    }
}

class VBEnumClass {
    public String toDebugString() {
        return "enum " + getClass().getSimpleName();
    }
}

class Colors extends VBEnumClass {
}

class Spinner {
    @Override
    public String toString() {
        long n = 0;
        while (n >= 0) n++;                                  // @spin
        return "never";
    }
}

class Worker extends Thread {
    int rounds = 3;
    Point target;

    Worker(Point target) {
        super("worker");
        this.target = target;
    }

    @Override
    public void run() {
        int twice = rounds * 2;
        System.out.println("worker " + twice);               // @in-run
    }
}
