import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.List;
import java.util.Properties;
import org.apache.solr.core.ConfigSetService;
import org.apache.solr.embedded.JettyConfig;
import org.apache.solr.embedded.JettySolrRunner;

/**
 * One Solr node over HTTP on 127.0.0.1: SolrNode HOME CONFIGSET PORT [ZOOKEEPER].
 *
 * <p>Port 0 takes a free one. Without ZOOKEEPER (host:port) the node stands alone and has the cores
 * "drivers" and "agents"; with it the node joins that cluster, and the first one brings the
 * configset "catalogue".
 */
public class SolrNode {
    private static final String CONFIGSET = "catalogue";
    private static final String ALONE = "<solr><bool name=\"hideStackTrace\">true</bool></solr>";
    private static final String IN_CLUSTER =
            "<solr><bool name=\"hideStackTrace\">true</bool><solrcloud>"
            + "<str name=\"host\">127.0.0.1</str>"
            + "<int name=\"hostPort\">${hostPort:8983}</int>"
            + "<str name=\"hostContext\">${hostContext:solr}</str>"
            + "<int name=\"zkClientTimeout\">15000</int></solrcloud></solr>";

    public static void main(String[] arguments) throws Exception {
        Path home = Files.createDirectories(Path.of(arguments[0]).toAbsolutePath());
        Path configset = Path.of(arguments[1]).toAbsolutePath();
        boolean alone = arguments.length < 4;
        Files.writeString(home.resolve("solr.xml"), alone ? ALONE : IN_CLUSTER);
        System.setProperty(
                "solr.log.dir", Files.createDirectories(home.resolve("logs")).toString());
        Properties properties = new Properties();
        if (alone) {
            prepareCores(home, configset);
        } else {
            properties.setProperty("zkHost", arguments[3]);
        }
        JettyConfig jetty =
                JettyConfig.builder().setPort(Integer.parseInt(arguments[2])).build();
        JettySolrRunner node = new JettySolrRunner(home.toString(), properties, jetty);
        node.start();
        if (!alone) {
            uploadOnce(node.getCoreContainer().getConfigSetService(), configset);
        }
        Parent.exitWithIt();
        System.out.println("ready " + node.getBaseUrl());
        Thread.currentThread().join();
    }

    private static void prepareCores(Path home, Path configset) throws IOException {
        Path conf = Files.createDirectories(home.resolve("configsets/" + CONFIGSET + "/conf"));
        for (String file : List.of("solrconfig.xml", "schema.xml")) {
            Files.copy(configset.resolve(file), conf.resolve(file),
                    StandardCopyOption.REPLACE_EXISTING);
        }
        for (String core : List.of("drivers", "agents")) {
            Path properties = Files.createDirectories(home.resolve(core)).resolve("core.properties");
            if (!Files.exists(properties)) {  // a switch of releases gives cores other names
                Files.writeString(properties, "name=" + core + "\nconfigSet=" + CONFIGSET + "\n");
            }
        }
    }

    private static void uploadOnce(ConfigSetService service, Path configset) throws IOException {
        if (!service.checkConfigExists(CONFIGSET)) {
            service.uploadConfig(CONFIGSET, configset, true);
        }
    }
}
