// Run from an installed prefix with no environment (java's single-file launcher): the jar, the
// JNI libraries and libquor_cs load from the prefix alone, and a service reaches the robot.
import com.quor.cs.Kit;
import com.quor.cs.Observer;
import com.quor.cs.Service;
import com.quor.cs.State;

public class InstalledKit {
  public static void main(String[] args) {
    try (Kit kit = new Kit();
        Service service = new Service(kit.deskId(), new Observer() {})) {
      service.start();
      kit.settle();
      if (service.status().state != State.ROBOT) {
        System.err.println("not with the robot: " + service.status().state);
        System.exit(1);
      }
      System.out.println("Java from the prefix: " + service.status().state);
    }
  }
}
