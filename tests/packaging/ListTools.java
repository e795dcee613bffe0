import com.talvane.orvex.comm.access.UsbException;
import com.talvane.orvex.comm.access.UsbSession;

public class ListTools {
    public static void main(String[] args) throws UsbException {
        try (UsbSession session = UsbSession.open()) {
            session.list(0x6A5C, 0x6A5D).devices().forEach(tool -> System.out.println(tool.info()));
        }
    }
}
