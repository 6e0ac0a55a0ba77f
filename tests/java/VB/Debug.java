// Stand-in of the Korvane runtime's debug-output class: the debugger stops
// silently in Print and shows its argument.
package VB;

public class Debug {
    public static void Print(String data) {
        System.out.println("print: " + data);
    }
}
