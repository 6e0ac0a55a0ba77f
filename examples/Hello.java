// The smallest debuggee: prints two lines and ends.
public class Hello {
    public static void main(String[] args) {
        System.out.println("Hello from the debuggee");
        System.out.println("Bye");
    }
}
