// The debuggee of the step and value benchmarks: an endless loop of three
// plain lines, with an int local and an object local in scope.
public class BenchTarget {
    public static void main(String[] args) {
        System.out.println("bench target ready");
        BenchPoint p = new BenchPoint(3, 4);
        int i = 0;
        long sum = 0;
        while (true) {
            i = i + 1; // @loop-a
            sum = sum + i; // @loop-b
            p.y = (int) (sum & 1023); // @loop-c
        }
    }
}
