// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// pgjdbc. Every worker does its work once untimed, until the compiler of the machine has seen it.

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.time.LocalDate;
import java.time.LocalDateTime;
import java.time.LocalTime;
import java.time.OffsetDateTime;
import java.time.temporal.ChronoField;
import java.util.ArrayList;
import java.util.List;
import java.util.UUID;
import java.util.concurrent.Callable;
import java.util.concurrent.CyclicBarrier;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.atomic.AtomicInteger;

final class Pgjdbc {
    private static final long NULL = 7; // what a null adds to the checksum
    private static final int INSERT_VALUES = 1000;
    private static final long WARM_OPERATIONS = 20_000; // of all threads; or one walk
    private static final long WARM_NANOSECONDS = 1_000_000_000;
    private static final double NANOSECONDS = 1e9;
    private static final double TICKS = 100; // of a second, in /proc
    private static final long MSEC_PER_DAY = 86_400_000;
    private static final long DAY_2000 = LocalDate.of(2000, 1, 1).toEpochDay();

    private final String operation;
    private final String url;
    private final String sql;
    private final String kinds;
    private final long count;
    private final long keys;
    private final int threads;
    private final int pageRows;
    private final long warmOperations;

    private final CyclicBarrier gate;
    private final AtomicInteger notDone;
    private Moment start;
    private Moment stop;

    /** What one thread has done. */
    private static final class Work {
        long operations;
        long checksum;
    }

    /** The clocks at one moment. */
    private static final class Moment {
        final long nanoseconds = System.nanoTime();
        final double user;
        final double system;

        Moment() {
            // Behind the name in parentheses: state is field 3, user and system time 14 and 15.
            String[] fields = read("/proc/self/stat").replaceFirst(".*\\) ", "").split(" ");
            user = Long.parseLong(fields[11]) / TICKS;
            system = Long.parseLong(fields[12]) / TICKS;
        }
    }

    /** What is measured: done for a part of the executions, or all of a walk. */
    private interface Job {
        void run(long first, long end, Work work) throws SQLException;
    }

    private Pgjdbc(String[] arguments) {
        operation = arguments[0];
        // Without a cache, which would keep statements prepared that the program has closed.
        url = String.format("jdbc:postgresql://%s:%s/%s?user=%s&prepareThreshold=1"
                + "&preparedStatementCacheQueries=0",
                arguments[1], arguments[2], arguments[4], arguments[3]);
        sql = arguments[5];
        kinds = arguments[6];
        count = Long.parseLong(arguments[7]);
        keys = Long.parseLong(arguments[8]);
        threads = Integer.parseInt(arguments[9]);
        pageRows = Integer.parseInt(arguments[10]);
        warmOperations =
                operation.equals("walk") ? Math.min(WARM_OPERATIONS, count) : WARM_OPERATIONS;
        gate = new CyclicBarrier(threads, () -> start = new Moment());
        notDone = new AtomicInteger(threads);
    }

    private static String read(String file) {
        try {
            return new String(Files.readAllBytes(Path.of(file)), StandardCharsets.UTF_8);
        } catch (IOException error) {
            throw new IllegalStateException(error);
        }
    }

    private static long bytes(byte[] value) {
        return value == null
                ? NULL
                : value.length + (value[0] & 0xff) + (value[value.length - 1] & 0xff);
    }

    private static long text(String value) {
        return value == null
                ? NULL
                : value.length() + value.charAt(0) + value.charAt(value.length() - 1);
    }

    private static long msecOfDay(LocalTime time) {
        return time.getLong(ChronoField.MILLI_OF_DAY);
    }

    private static long daysSince2000(LocalDate date) {
        return date.toEpochDay() - DAY_2000;
    }

    private static long msecSince2000(LocalDateTime moment) {
        return daysSince2000(moment.toLocalDate()) * MSEC_PER_DAY + msecOfDay(moment.toLocalTime());
    }

    private static long value(char kind, ResultSet rows, int column) throws SQLException {
        switch (kind) {
            case 'b':
                long flag = rows.getBoolean(column) ? 2 : 1;
                return rows.wasNull() ? NULL : flag;
            case 'y':
                return bytes(rows.getBytes(column));
            case 'i':
                long number = rows.getLong(column);
                return rows.wasNull() ? NULL : number;
            case 'f':
                long quarters = (long) (rows.getDouble(column) * 4);
                return rows.wasNull() ? NULL : quarters;
            case 't':
                return text(rows.getString(column));
            default:
                return objectValue(kind, rows, column);
        }
    }

    private static long objectValue(char kind, ResultSet rows, int column) throws SQLException {
        switch (kind) {
            case 'n':
                var decimal = rows.getBigDecimal(column);
                return decimal == null ? NULL : decimal.longValue();
            case 'd':
                LocalDate date = rows.getObject(column, LocalDate.class);
                return date == null ? NULL : daysSince2000(date);
            case 'm':
                LocalTime time = rows.getObject(column, LocalTime.class);
                return time == null ? NULL : msecOfDay(time);
            case 's':
                LocalDateTime moment = rows.getObject(column, LocalDateTime.class);
                return moment == null ? NULL : msecSince2000(moment);
            case 'z':
                OffsetDateTime zoned = rows.getObject(column, OffsetDateTime.class);
                return zoned == null ? NULL : msecSince2000(zoned.toLocalDateTime());
            case 'u':
                UUID uuid = rows.getObject(column, UUID.class);
                return uuid == null ? NULL : uuid.getMostSignificantBits() >>> 32;
            case 'j':
                String json = rows.getString(column);
                return json == null ? NULL : json.length();
            default:
                throw new IllegalArgumentException("kinds: unknown letter");
        }
    }

    private long rowValue(ResultSet rows) throws SQLException {
        long sum = 0;
        for (int column = 0; column < kinds.length(); ++column) {
            sum += value(kinds.charAt(column), rows, column + 1);
        }
        return sum;
    }

    private Connection connect() throws SQLException {
        Connection connection = DriverManager.getConnection(url);
        connection.setAutoCommit(false);
        return connection;
    }

    private PreparedStatement prepare(Connection connection) throws SQLException {
        PreparedStatement statement = connection.prepareStatement(sql);
        statement.setFetchSize(pageRows);
        return statement;
    }

    private boolean isWarm(Work work, long since) {
        return work.operations >= warmOperations / threads
                && System.nanoTime() - since >= WARM_NANOSECONDS;
    }

    private void warmUp(Job job, long first, long end) throws SQLException {
        Work work = new Work();
        for (long since = System.nanoTime(); !isWarm(work, since);) {
            job.run(first, end, work);
        }
    }

    private Work timed(Job job, int thread) throws Exception {
        long first = count * thread / threads;
        long end = count * (thread + 1) / threads;
        Work work = new Work();
        gate.await();
        job.run(first, end, work);
        if (notDone.decrementAndGet() == 0) {
            stop = new Moment();
        }
        return work;
    }

    /** Reads to the end; a warming walk ends as soon as it is warm. */
    private void walkRows(PreparedStatement statement, long warmingSince, Work work)
            throws SQLException {
        try (ResultSet rows = statement.executeQuery()) {
            while (rows.next()) {
                work.checksum += rowValue(rows);
                ++work.operations;
                if (warmingSince != 0 && isWarm(work, warmingSince)) {
                    return;
                }
            }
        }
    }

    private Work walk(int thread) throws Exception {
        try (Connection connection = connect(); PreparedStatement statement = prepare(connection)) {
            long since = System.nanoTime();
            for (Work work = new Work(); !isWarm(work, since);) {
                walkRows(statement, since, work);
            }
            connection.rollback();
            return timed((first, end, work) -> {
                walkRows(statement, 0, work);
                connection.commit();
            }, thread);
        }
    }

    private long key(long execution) {
        return 1 + (execution * 2654435761L & 0xffffffffL) % keys;
    }

    private Work point(int thread) throws Exception {
        try (Connection connection = connect(); PreparedStatement statement = prepare(connection)) {
            Job job = (first, end, work) -> {
                for (long i = first; i < end; ++i) {
                    statement.setLong(1, key(i));
                    walkRows(statement, 0, work);
                }
            };
            warmUp(job, count * thread / threads, count * (thread + 1) / threads);
            return timed(job, thread);
        }
    }

    private Work insert(int thread) throws Exception {
        LocalDateTime from = LocalDateTime.of(2020, 1, 1, 0, 0);
        String[] texts = new String[INSERT_VALUES];
        LocalDateTime[] moments = new LocalDateTime[INSERT_VALUES];
        for (int i = 0; i < INSERT_VALUES; ++i) {
            texts[i] = "insert benchmark " + i;
            moments[i] = from.plusSeconds(i);
        }
        try (Connection connection = connect(); PreparedStatement statement = prepare(connection)) {
            Job job = (first, end, work) -> {
                for (long i = first; i < end; ++i, ++work.operations) {
                    statement.setLong(1, i);
                    statement.setDouble(2, i * 0.25);
                    statement.setString(3, texts[(int) (i % INSERT_VALUES)]);
                    statement.setObject(4, moments[(int) (i % INSERT_VALUES)]);
                    statement.executeUpdate();
                }
            };
            warmUp(job, 0, count);
            connection.rollback();
            return timed((first, end, work) -> {
                job.run(first, end, work);
                connection.commit();
            }, thread);
        }
    }

    private Work texts(int thread) throws Exception {
        try (Connection connection = connect()) {
            Job job = (first, end, work) -> {
                for (long i = first; i < end; ++i) {
                    String text = sql.replace("#", Long.toString(i));
                    try (PreparedStatement statement = connection.prepareStatement(text)) {
                        walkRows(statement, 0, work);
                    }
                }
            };
            warmUp(job, 0, count);
            return timed(job, thread);
        }
    }

    private Work work(int thread) throws Exception {
        switch (operation) {
            case "walk":
                return walk(thread);
            case "point":
                return point(thread);
            case "insert":
                return insert(thread);
            case "texts":
                return texts(thread);
            default:
                throw new IllegalArgumentException(operation + ": no such operation");
        }
    }

    private static long peakKib() {
        String status = read("/proc/self/status");
        return Long.parseLong(status.replaceFirst("(?s).*VmHWM:\\s+(\\d+) kB.*", "$1"));
    }

    private void print(Work all) {
        System.out.printf("{\"workload\": \"%s\", \"operations\": %d, \"seconds\": %.6f, "
                + "\"checksum\": %s, \"peak_kib\": %d, \"user\": %.6f, \"system\": %.6f}%n",
                operation, all.operations, (stop.nanoseconds - start.nanoseconds) / NANOSECONDS,
                Long.toUnsignedString(operation.equals("insert") ? 0 : all.checksum), peakKib(),
                stop.user - start.user, stop.system - start.system);
    }

    private void run() throws Exception {
        List<Callable<Work>> workers = new ArrayList<>();
        for (int i = 0; i < threads; ++i) {
            int thread = i;
            workers.add(() -> guarded(thread));
        }
        ExecutorService pool = Executors.newFixedThreadPool(threads);
        Work all = new Work();
        for (Future<Work> future : pool.invokeAll(workers)) {
            all.operations += future.get().operations;
            all.checksum += future.get().checksum;
        }
        pool.shutdown();
        print(all);
    }

    /** The others may wait for a worker that fails. */
    private Work guarded(int thread) {
        try {
            return work(thread);
        } catch (Exception error) {
            System.err.println("pgjdbc: " + error);
            Runtime.getRuntime().halt(1);
            return null;
        }
    }

    public static void main(String[] arguments) throws Exception {
        new Pgjdbc(arguments).run();
    }
}
