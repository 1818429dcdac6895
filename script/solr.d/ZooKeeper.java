import java.io.File;
import java.net.InetSocketAddress;
import java.nio.file.Files;
import java.nio.file.Path;
import org.apache.zookeeper.server.NIOServerCnxnFactory;
import org.apache.zookeeper.server.ZooKeeperServer;

/** A ZooKeeper of its own process: ZooKeeper DIRECTORY PORT; port 0 takes a free one. */
public class ZooKeeper {
    private static final int CONNECTIONS = 200;
    private static final int TICK_MILLISECONDS = 2000;

    public static void main(String[] arguments) throws Exception {
        File snapshots = Files.createDirectories(Path.of(arguments[0], "snapshots")).toFile();
        File log = Files.createDirectories(Path.of(arguments[0], "log")).toFile();
        InetSocketAddress address =
                new InetSocketAddress("127.0.0.1", Integer.parseInt(arguments[1]));
        NIOServerCnxnFactory server = new NIOServerCnxnFactory();
        server.configure(address, CONNECTIONS);
        server.startup(new ZooKeeperServer(snapshots, log, TICK_MILLISECONDS));
        Parent.exitWithIt();
        System.out.println("ready 127.0.0.1:" + server.getLocalPort());
        server.join();
    }
}
