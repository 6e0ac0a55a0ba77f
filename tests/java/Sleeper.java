// A debuggee that keeps running until it is killed. It tells its process id,
// so that a test can check on the VM itself, and says so every twenty rounds,
// so that a test can see it run on without a stop.
public class Sleeper {
    public static void main(String[] args) throws Exception {
        System.out.println("sleeper ready pid=" + ProcessHandle.current().pid());
        for (int round = 1; ; round++) {
            Thread.sleep(10);                           // @sleeper-loop
            if (round % 20 == 0)
                System.out.println("sleeper round " + round);
        }
    }
}
