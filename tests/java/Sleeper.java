// A debuggee that keeps running until it is killed; it tells its process id
// so that a test can check on the VM itself.
public class Sleeper {
    public static void main(String[] args) throws Exception {
        System.out.println("sleeper ready pid=" + ProcessHandle.current().pid());
        while (true) {
            Thread.sleep(50);                         // @sleeper-loop
        }
    }
}
