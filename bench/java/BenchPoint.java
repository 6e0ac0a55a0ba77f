// An object for the value benchmarks: a field to read and a toString to
// invoke in the VM.
public class BenchPoint {
    int x;
    int y;

    BenchPoint(int x, int y) {
        this.x = x;
        this.y = y;
    }

    @Override
    public String toString() {
        return "BenchPoint(" + x + ", " + y + ")";
    }
}
