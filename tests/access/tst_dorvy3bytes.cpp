// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The reader and the writer of wire bytes, at their bounds.
#include "access/dorvy3bytes_p.h"

#include "tests/support/childprocess.h"

#include <QtTest/QtTest>

#include <cstdio>
#include <limits>

class tst_Dorvy3Bytes : public QObject
{
    Q_OBJECT

private slots:
    void readsBigEndian();
    void readsSigned_data();
    void readsSigned();
    void readsFloats_data();
    void readsFloats();
    void readsDoubles_data();
    void readsDoubles();
    void readsUpToTheLastByte();
    void readPastTheEndSpoils_data();
    void readPastTheEndSpoils();
    void spoiledReaderStaysSpoiled();
    void readerOfNothing_data();
    void readerOfNothing();
    void readsUnalignedBytes();

    void writesBigEndian();
    void writesFloats();
    void writesBytesAsTheyAre();
    void writeLeavesTheSize();
    void writeDetachesASharedArray();
    void writeDetachesALiteral();
    void writeGoesBehindTheEnd();
    void writersInARow();
    void nothingToWrite();
    void writePastTheEndIsNotMade();
};

void tst_Dorvy3Bytes::readsBigEndian()
{
    const QByteArray bytes = QByteArray::fromHex("01"
                                                 "0203"
                                                 "04050607"
                                                 "08090a0b0c0d0e0f");
    Dorvy3ByteReader reader(bytes.constData(), bytes.size());
    QCOMPARE(reader.remaining(), size_t(15));
    QCOMPARE(reader.read<quint8>(), quint8(0x01));
    QCOMPARE(reader.read<quint16>(), quint16(0x0203));
    QCOMPARE(reader.remaining(), size_t(12));
    QCOMPARE(reader.read<quint32>(), 0x04050607u);
    QCOMPARE(reader.read<quint64>(), Q_UINT64_C(0x08090a0b0c0d0e0f));
    QCOMPARE(reader.remaining(), size_t(0));
    QVERIFY(reader.isGood());
}

void tst_Dorvy3Bytes::readsSigned_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qint64>("number");
    QTest::newRow("16 bits, -1") << QByteArray::fromHex("ffff") << Q_INT64_C(-1);
    QTest::newRow("16 bits, lowest") << QByteArray::fromHex("8000") << Q_INT64_C(-32768);
    QTest::newRow("16 bits, highest") << QByteArray::fromHex("7fff") << Q_INT64_C(32767);
    QTest::newRow("32 bits, -2") << QByteArray::fromHex("fffffffe") << Q_INT64_C(-2);
    QTest::newRow("32 bits, lowest") << QByteArray::fromHex("80000000") << Q_INT64_C(-2147483648);
    QTest::newRow("64 bits, -256") << QByteArray::fromHex("ffffffffffffff00") << Q_INT64_C(-256);
    QTest::newRow("64 bits, lowest")
        << QByteArray::fromHex("8000000000000000") << std::numeric_limits<qint64>::min();
}

void tst_Dorvy3Bytes::readsSigned()
{
    QFETCH(QByteArray, bytes);
    QFETCH(qint64, number);
    Dorvy3ByteReader reader(bytes.constData(), bytes.size());
    const qint64 read = bytes.size() == 2   ? reader.read<qint16>()
                        : bytes.size() == 4 ? reader.read<qint32>()
                                            : reader.read<qint64>();
    QCOMPARE(read, number);
    QVERIFY(reader.isGood());
}

void tst_Dorvy3Bytes::readsFloats_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<float>("number");
    QTest::newRow("zero") << QByteArray::fromHex("00000000") << 0.0f;
    QTest::newRow("one and a half") << QByteArray::fromHex("3fc00000") << 1.5f;
    QTest::newRow("negative") << QByteArray::fromHex("c2290000") << -42.25f;
    QTest::newRow("largest") << QByteArray::fromHex("7f7fffff")
                             << std::numeric_limits<float>::max();
    QTest::newRow("smallest") << QByteArray::fromHex("00000001")
                              << std::numeric_limits<float>::denorm_min();
    QTest::newRow("infinity") << QByteArray::fromHex("7f800000")
                              << std::numeric_limits<float>::infinity();
}

void tst_Dorvy3Bytes::readsFloats()
{
    QFETCH(QByteArray, bytes);
    QFETCH(float, number);
    Dorvy3ByteReader reader(bytes.constData(), bytes.size());
    QVERIFY(reader.readFloat() == number);
    QVERIFY(reader.isGood());
    QCOMPARE(reader.remaining(), size_t(0));
}

void tst_Dorvy3Bytes::readsDoubles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<double>("number");
    QTest::newRow("zero") << QByteArray::fromHex("0000000000000000") << 0.0;
    QTest::newRow("one and a half") << QByteArray::fromHex("3ff8000000000000") << 1.5;
    QTest::newRow("negative") << QByteArray::fromHex("c045200000000000") << -42.25;
    QTest::newRow("largest") << QByteArray::fromHex("7fefffffffffffff")
                             << std::numeric_limits<double>::max();
    QTest::newRow("smallest") << QByteArray::fromHex("0000000000000001")
                              << std::numeric_limits<double>::denorm_min();
    QTest::newRow("negative infinity")
        << QByteArray::fromHex("fff0000000000000") << -std::numeric_limits<double>::infinity();
}

void tst_Dorvy3Bytes::readsDoubles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(double, number);
    Dorvy3ByteReader reader(bytes.constData(), bytes.size());
    QVERIFY(reader.readDouble() == number);
    QVERIFY(reader.isGood());
    QCOMPARE(reader.remaining(), size_t(0));
}

void tst_Dorvy3Bytes::readsUpToTheLastByte()
{
    const char bytes[] = {0, 0, 0, 7, 'x'};
    Dorvy3ByteReader reader(bytes, 4);
    QCOMPARE(reader.read<qint32>(), 7);
    QVERIFY(reader.isGood());
    QCOMPARE(reader.read<qint8>(), qint8(0)); // not the 'x' behind the end
    QVERIFY(!reader.isGood());
}

void tst_Dorvy3Bytes::readPastTheEndSpoils_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("size");
    QTest::newRow("nothing for 8 bits") << 0 << 1;
    QTest::newRow("one byte for 16 bits") << 1 << 2;
    QTest::newRow("three bytes for 32 bits") << 3 << 4;
    QTest::newRow("seven bytes for 64 bits") << 7 << 8;
    QTest::newRow("four bytes for 64 bits") << 4 << 8;
}

void tst_Dorvy3Bytes::readPastTheEndSpoils()
{
    QFETCH(int, length);
    QFETCH(int, size);
    const QByteArray bytes(length, '\x11');
    Dorvy3ByteReader reader(bytes.constData(), length);
    const quint64 read = size == 1   ? reader.read<quint8>()
                         : size == 2 ? reader.read<quint16>()
                         : size == 4 ? reader.read<quint32>()
                                     : reader.read<quint64>();
    QCOMPARE(read, Q_UINT64_C(0));
    QVERIFY(!reader.isGood());
}

void tst_Dorvy3Bytes::spoiledReaderStaysSpoiled()
{
    const char bytes[] = {1, 2, 3};
    Dorvy3ByteReader reader(bytes, 3);
    QCOMPARE(reader.read<quint16>(), quint16(0x0102));
    QCOMPARE(reader.read<quint16>(), quint16(0));
    QVERIFY(!reader.isGood());
    QCOMPARE(reader.read<quint8>(), quint8(0)); // the byte that is left is not handed out
    QCOMPARE(reader.remaining(), size_t(0));
    QCOMPARE(reader.readFloat(), 0.0f);
    QCOMPARE(reader.readDouble(), 0.0);
    QVERIFY(!reader.isGood());
}

void tst_Dorvy3Bytes::readerOfNothing_data()
{
    QTest::addColumn<bool>("hasBytes");
    QTest::addColumn<int>("length");
    QTest::newRow("empty") << true << 0;
    QTest::newRow("negative length") << true << -1;
    QTest::newRow("lowest length") << true << std::numeric_limits<int>::min();
    QTest::newRow("null bytes") << false << 0;
    QTest::newRow("null bytes with a length") << false << 8;
}

void tst_Dorvy3Bytes::readerOfNothing()
{
    QFETCH(bool, hasBytes);
    QFETCH(int, length);
    Dorvy3ByteReader reader(hasBytes ? "12345678" : nullptr, length);
    QVERIFY(reader.isGood());
    QCOMPARE(reader.remaining(), size_t(0));
    QCOMPARE(reader.read<quint8>(), quint8(0));
    QVERIFY(!reader.isGood());
}

void tst_Dorvy3Bytes::readsUnalignedBytes()
{
    alignas(8) const char bytes[] = {9, 0, 0, 0, 0, 0, 0, 1, 2};
    Dorvy3ByteReader reader(bytes + 1, 8);
    QCOMPARE(reader.read<quint64>(), Q_UINT64_C(0x0102));
    QVERIFY(reader.isGood());
}

void tst_Dorvy3Bytes::writesBigEndian()
{
    QByteArray out;
    Dorvy3ByteWriter writer(out, 15);
    writer.write<quint8>(0x01);
    writer.write<qint16>(-2);
    writer.write<quint32>(0x04050607);
    writer.write<qint64>(-256);
    out.resize(15);
    QCOMPARE(out.toHex(), QByteArray("01"
                                     "fffe"
                                     "04050607"
                                     "ffffffffffffff00"));
}

void tst_Dorvy3Bytes::writesFloats()
{
    QByteArray out;
    Dorvy3ByteWriter writer(out, 12);
    writer.writeFloat(-42.25f);
    writer.writeDouble(1.5);
    out.resize(12);
    QCOMPARE(out.toHex(), QByteArray("c2290000"
                                     "3ff8000000000000"));
}

void tst_Dorvy3Bytes::writesBytesAsTheyAre()
{
    QByteArray out;
    Dorvy3ByteWriter writer(out, 5);
    writer.writeBytes("a\0\xff", 3);
    writer.writeBytes("", 0);
    writer.writeBytes("zy", 2);
    out.resize(5);
    QCOMPARE(out.toHex(), QByteArray("6100ff7a79"));
}

void tst_Dorvy3Bytes::writeLeavesTheSize()
{
    QByteArray out("abc");
    Dorvy3ByteWriter writer(out, 4);
    QVERIFY(out.capacity() >= 7);
    writer.write<quint32>(0x64656667);
    QCOMPARE(out.size(), 3);
    QCOMPARE(out, QByteArray("abc"));
    out.resize(7);
    QCOMPARE(out, QByteArray("abcdefg"));
}

void tst_Dorvy3Bytes::writeDetachesASharedArray()
{
    QByteArray out("abc..");
    out.reserve(64); // room for all: only the sharing calls for a copy
    out.resize(3);
    const QByteArray other = out;
    QVERIFY(other.constData() == out.constData());
    Dorvy3ByteWriter writer(out, 2);
    QVERIFY(out.capacity() >= 5); // its copy has the room, too
    writer.write<quint16>(0x7879);
    QVERIFY(other.constData() != out.constData());
    out.resize(5);
    QCOMPARE(out, QByteArray("abcxy"));
    QCOMPARE(other, QByteArray("abc"));
    QCOMPARE(other.constData()[4], '.'); // resize() itself has put a zero in front of it
}

void tst_Dorvy3Bytes::writeDetachesALiteral()
{
    static const char text[] = "abcdef";
    QByteArray out = QByteArray::fromRawData(text, 3);
    Dorvy3ByteWriter writer(out, 2);
    writer.write<quint16>(0x7879);
    out.resize(5);
    QCOMPARE(out, QByteArray("abcxy"));
    QCOMPARE(QByteArray(text), QByteArray("abcdef"));
}

void tst_Dorvy3Bytes::writeGoesBehindTheEnd()
{
    QByteArray out("0123456789");
    out.resize(3); // the old bytes are still behind the end
    Dorvy3ByteWriter writer(out, 2);
    writer.writeBytes("xy", 2);
    out.resize(5);
    QCOMPARE(out, QByteArray("012xy"));
}

void tst_Dorvy3Bytes::writersInARow()
{
    QByteArray out;
    QByteArray expected;
    for (int i = 0; i < 1000; ++i) {
        Dorvy3ByteWriter writer(out, 2);
        writer.write<quint16>(quint16(i));
        out.resize(out.size() + 2);
        expected += char(i / 256);
        expected += char(i % 256);
    }
    QCOMPARE(out, expected);
}

void tst_Dorvy3Bytes::nothingToWrite()
{
    QByteArray out("abc");
    Dorvy3ByteWriter writer(out, 0);
    writer.writeBytes("xy", 0);
    QCOMPARE(out, QByteArray("abc"));
}

void tst_Dorvy3Bytes::writePastTheEndIsNotMade()
{
    // A debug build stops at it, a release build leaves it out.
    const ChildOutcome outcome = runInChild([] {
        QByteArray out;
        out.reserve(64);
        out.resize(8);
        out.fill('.');
        out.resize(0);
        Dorvy3ByteWriter writer(out, 3);
        writer.write<quint16>(0x6162);
        writer.write<quint16>(0x6364);
        writer.writeBytes("efg", 3);
        writer.write<quint8>(0x68);
        out.resize(4);
        std::printf("%s", out.constData());
    });
#ifdef QT_NO_DEBUG
    QCOMPARE(outcome.output, QStringLiteral("abh."));
    QVERIFY(!outcome.aborted);
#else
    QVERIFY(outcome.aborted);
    QVERIFY2(outcome.fatal.startsWith(QStringLiteral("ASSERT: ")), qPrintable(outcome.fatal));
    QCOMPARE(outcome.output, QString());
#endif
}

QTEST_GUILESS_MAIN(tst_Dorvy3Bytes)
#include "tst_dorvy3bytes.moc"
