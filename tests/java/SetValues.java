// A debuggee for setting values: locals, fields and statics of each
// primitive type and String, and final ones, printed after the stop so
// that the program's own output shows what the debugger set; a field hidden
// by one of the same name in a subclass. A second stop in an instance
// method, whose fields are named without this.
public class SetValues {
    static int total = 1;
    static String title = "before";
    static final int LIMIT = 10;

    public static void main(String[] args) {
        int i = 5;
        long l = 6L;
        double d = 1.5;
        float f = 0.5f;
        boolean flag = false;
        char c = 'a';
        byte b = 1;
        short s = 2;
        String text = "old";
        Gauge g = new Gauge();
        System.out.println("set here");                      // @set-stop
        System.out.println("locals i=" + i + " l=" + l + " d=" + d + " f=" + f + " flag=" + flag + " c=" + c
                + " b=" + b + " s=" + s + " text=" + text);
        System.out.println("fields level=" + g.level + " ratio=" + g.ratio + " name=" + g.name + " on=" + g.on
                + " id=" + g.id + " base=" + g.baseLevel());
        System.out.println("statics total=" + total + " title=" + title + " LIMIT=" + LIMIT);
        g.bump();
    }
}

class Dial {
    int level = 1;

    int baseLevel() {
        return level;
    }
}

class Gauge extends Dial {
    int level = 3;
    double ratio = 0.25;
    String name = "gauge";
    boolean on;
    final int id = 7;

    void bump() {
        level++;                                             // @in-bump
        System.out.println("bumped level=" + level + " name=" + name);
    }
}
