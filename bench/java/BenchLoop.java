// A debuggee for the benchmarks: stays alive until killed.
public class BenchLoop {
    public static void main(String[] args) throws Exception {
        System.out.println("bench loop ready");
        while (true) {
            Thread.sleep(1000);
        }
    }
}
