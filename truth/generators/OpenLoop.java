import java.io.IOException;
import java.io.InputStream;
import java.net.Socket;
import java.net.URI;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.locks.LockSupport;

/**
 * OpenLoop SECONDS URL RATE CONNECTIONS: see generators.h. Each connection has a thread and its part of the rate, due at times that
 * are fixed in advance; a request took as long as from when it was due to the end of its answer. What is due in the first seconds,
 * in which the program is still compiled, does not count.
 */
class OpenLoop {
    static final long WARM_UP = 2_500_000_000L, LATE = 10_000_000L;
    static final AtomicLong asked = new AtomicLong(), sent = new AtomicLong(), late = new AtomicLong();

    public static void main(String[] words) throws Exception {
        final URI url = URI.create(words[1]);
        final int connections = Integer.parseInt(words[3]);
        final long period = 1_000_000_000L * connections / Integer.parseInt(words[2]);
        final long start = System.nanoTime(), end = start + 1_000_000_000L * Integer.parseInt(words[0]);
        final Thread[] senders = new Thread[connections];
        for (int i = 0; i < connections; ++i) {
            final long first = start + period * i / connections;
            senders[i] = new Thread(() -> send(url, first, period, start + WARM_UP, end), "sender-" + i);
            senders[i].start();
        }
        for (Thread sender : senders) sender.join();
        System.out.println("asked=" + asked + " sent=" + sent + " late=" + late);
    }

    static void send(URI url, long first, long period, long counted, long end) {
        try (Socket socket = new Socket(url.getHost(), url.getPort())) {
            socket.setTcpNoDelay(true);
            for (long due = first; due < end; due += period) {
                while (System.nanoTime() < due) LockSupport.parkNanos(due - System.nanoTime());
                if (due >= counted) asked.incrementAndGet();
                if (System.nanoTime() >= end) continue;
                get(socket, url);
                if (due < counted) continue;
                sent.incrementAndGet();
                if (System.nanoTime() - due > LATE) late.incrementAndGet();
            }
        } catch (IOException failed) {
            System.err.println(failed);
            System.exit(1);
        }
    }

    /** The answer's end is that of the bytes that its Content-Length tells. */
    static void get(Socket socket, URI url) throws IOException {
        final String request = "GET / HTTP/1.1\r\nHost: " + url.getHost() + "\r\n\r\n";
        socket.getOutputStream().write(request.getBytes(StandardCharsets.US_ASCII));
        final InputStream in = socket.getInputStream();
        int length = 0;
        for (String line = line(in); !line.isEmpty(); line = line(in)) {
            if (line.startsWith("Content-Length: ")) length = Integer.parseInt(line.substring(16));
        }
        if (in.readNBytes(length).length < length) throw new IOException("the answer was cut");
    }

    static String line(InputStream in) throws IOException {
        final StringBuilder text = new StringBuilder();
        for (int character = in.read(); character != '\n'; character = in.read()) {
            if (character < 0) throw new IOException("the server closed the connection");
            if (character != '\r') text.append((char) character);
        }
        return text.toString();
    }
}
