import java.io.IOException;

/** Whoever started this process holds the other end of its standard input. */
final class Parent {
    private Parent() {}

    /** Ends this process when that end is closed, however its holder ended. */
    static void exitWithIt() {
        Thread watch = new Thread(() -> {
            try {
                while (System.in.read() >= 0) {
                    continue;
                }
            } catch (IOException closed) {
                // As good as an end.
            }
            System.exit(0);
        }, "parent-watch");
        watch.setDaemon(true);
        watch.start();
    }
}
