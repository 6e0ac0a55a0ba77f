// A library for the step tests and the step benchmark: no target of theirs.
// churn runs three lines per turn (15,000 lines for 5,000 turns) and calls
// the callback it is given once, half-way.
package lib;

public class Churn {
    public static long churn(int turns, Runnable callback) {
        long sum = 0;                                   // @churn-first
        for (int i = 0; i < turns; i++) {
            sum += i * 31L;                             // @churn-loop
            if (callback != null && i == turns / 2)
                callback.run();
        }
        return sum;
    }
}
