// A debuggee with a window: opens one frame titled "KrvDbg Window Test" and
// stays open until its process is killed, so that the window tests can find
// the frame by process id, minimise it and bring it back.
import java.awt.EventQueue;
import javax.swing.JFrame;
import javax.swing.WindowConstants;

public class WindowApp {
    public static void main(String[] args) {
        EventQueue.invokeLater(() -> {
            JFrame frame = new JFrame("KrvDbg Window Test");
            frame.setDefaultCloseOperation(WindowConstants.DO_NOTHING_ON_CLOSE);
            frame.setSize(320, 200);
            frame.setLocation(40, 40);
            frame.setVisible(true);
        });
    }
}
