// A debuggee that keeps running until it is killed.
public class Sleeper {
    public static void main(String[] args) throws Exception {
        System.out.println("sleeper ready");
        while (true) {
            Thread.sleep(50);
        }
    }
}
