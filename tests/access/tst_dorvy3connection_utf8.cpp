// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Texts in UTF-8, which go without Qt's codec: what comes out is what the codec makes of them.
#include "access/dorvy3connection.h"

#include <QtCore/QTextCodec>
#include <QtTest/QtTest>

#include <functional>
#include <memory>
#include <random>

namespace {

// Texts that are made one by one, as they are too many to be kept.
template<typename Text>
struct Texts
{
    int count;
    std::function<Text(int)> at;
};

using Utf8Texts = Texts<QByteArray>;
using Utf16Texts = Texts<QString>;

template<typename Text>
Texts<Text> listed(const QList<Text> &texts)
{
    return {texts.size(), [texts](int i) { return texts.at(i); }};
}

Utf8Texts everyText(int length)
{
    return {1 << (8 * length), [length](int i) {
                QByteArray text(length, '\0');
                for (int at = 0; at < length; ++at) {
                    text[at] = static_cast<char>(i >> (8 * at));
                }
                return text;
            }};
}

// The same ones in every run, of which most break a rule of UTF-8.
Utf8Texts randomTexts(int count)
{
    static const QByteArray Rich = QByteArray::fromHex(
        "00 41 7f 80 81 8f 90 9f a0 ad ae af b0 b7 b8 bb bd be bf c0 c1 c2 c3 d0 df e0 e1 ec ed ee "
        "ef f0 f1 f3 f4 f5 f7 f8 fb fc fd fe ff");
    const auto random = std::make_shared<std::mt19937>(20000101);
    return {count, [random](int) {
                QByteArray text(4 + static_cast<int>((*random)() % 5), '\0');
                for (char &byte : text) {
                    byte = Rich.at(static_cast<int>((*random)() % unsigned(Rich.size())));
                }
                return text;
            }};
}

// Each of \a parts, in every place among letters and alone.
QList<QByteArray> inEveryPlace(const QList<QByteArray> &parts)
{
    const QByteArray around("ab\xd0\x9f\xf0\x9f\x98\x80 0123456789 0123456789 cd");
    QList<QByteArray> texts = parts;
    for (const QByteArray &part : parts) {
        for (int at = 0; at <= around.size(); ++at) {
            texts += QByteArray(around).insert(at, part);
        }
        texts += part + part;
    }
    return texts;
}

QList<QByteArray> fromHex(const QList<QByteArray> &texts)
{
    QList<QByteArray> bytes;
    for (const QByteArray &text : texts) {
        bytes += QByteArray::fromHex(text);
    }
    return bytes;
}

// Each from its first byte to every byte but its last.
QList<QByteArray> truncated(const QList<QByteArray> &characters)
{
    QList<QByteArray> parts;
    for (const QByteArray &character : characters) {
        for (int length = 1; length < character.size(); ++length) {
            parts += character.left(length);
        }
    }
    return parts;
}

// Pairs of units around the borders of the surrogates and of their halves.
Utf16Texts pairsAtTheBorders()
{
    QString units;
    for (const int border : {0xd800, 0xdc00, 0xe000}) {
        for (int unit = border - 16; unit < border + 16; ++unit) {
            units += QChar(static_cast<ushort>(unit));
        }
    }
    return {units.size() * units.size(), [units](int i) {
                return QString(units.at(i / units.size())) + units.at(i % units.size());
            }};
}

Utf16Texts randomUnits(int count)
{
    const auto random = std::make_shared<std::mt19937>(20000101);
    return {count, [random](int) {
                QString text;
                for (unsigned left = 1 + (*random)() % 8; left > 0; --left) {
                    const unsigned unit = (*random)() % 0x10000;
                    const bool surrogate = (*random)() % 2;
                    text += QChar(static_cast<ushort>(surrogate ? 0xd800 + unit % 0x800 : unit));
                }
                return text;
            }};
}

} // namespace

Q_DECLARE_METATYPE(Utf8Texts)
Q_DECLARE_METATYPE(Utf16Texts)

class tst_Dorvy3Connection_Utf8 : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void toTheClient_data();
    void toTheClient();
    void toTheServer_data();
    void toTheServer();

private:
    QTextCodec *const utf8 = QTextCodec::codecForName("UTF-8");
    std::unique_ptr<Dorvy3Connection> connection;
};

// A connection that was refused has the locale's codec, and needs no server.
void tst_Dorvy3Connection_Utf8::initTestCase()
{
    QTextCodec::setCodecForLocale(utf8);
    connection.reset(new Dorvy3Connection(PQconnectdb("refused"), QString()));
}

void tst_Dorvy3Connection_Utf8::toTheClient_data()
{
    QTest::addColumn<Utf8Texts>("texts");
    const QList<QByteArray> characters = fromHex(
        {"c280", "dfbf", "e0a080", "ed9fbf", "ee8080", "efbfbf", "f0908080", "f48fbfbf", "efbbbf"});
    const QList<QByteArray> tooLong =
        fromHex({"c080", "c1bf", "e08080", "e09fbf", "f0808080", "f08fbfbf", "f8808080af",
                 "fc80808080af", "f4908080", "f7bfbfbf", "fbbfbfbfbf", "fdbfbfbfbfbf"});
    const QList<QByteArray> surrogates =
        fromHex({"eda080", "edafbf", "edb080", "edbfbf", "eda080edb080", "edafbfedbfbf",
                 "edb080eda080", "eda0", "eda080ed", "eda080edb0"});
    QTest::newRow("no byte") << everyText(0);
    QTest::newRow("1 byte") << everyText(1);
    QTest::newRow("2 bytes") << everyText(2);
    QTest::newRow("3 bytes") << everyText(3);
    QTest::newRow("4 to 8 bytes, random") << randomTexts(1000000);
    QTest::newRow("byte order marks")
        << listed(inEveryPlace(fromHex({"efbbbf", "efbbbfefbbbf", "efbb", "feff", "fffe"})));
    QTest::newRow("truncated") << listed(inEveryPlace(truncated(characters)));
    QTest::newRow("whole") << listed(inEveryPlace(characters));
    QTest::newRow("too long, or too great") << listed(inEveryPlace(tooLong));
    QTest::newRow("surrogates") << listed(inEveryPlace(surrogates));
}

// Up to a zero and by its length, a text is what the codec makes of it.
void tst_Dorvy3Connection_Utf8::toTheClient()
{
    QFETCH(Utf8Texts, texts);
    for (int i = 0; i < texts.count; ++i) {
        const QByteArray text = texts.at(i);
        const char *bytes = text.constData();
        if (connection->client(bytes, text.size()) != utf8->toUnicode(bytes, text.size()) ||
            connection->client(bytes, -1) != utf8->toUnicode(bytes)) {
            QFAIL(text.toHex().constData());
        }
    }
}

void tst_Dorvy3Connection_Utf8::toTheServer_data()
{
    QTest::addColumn<Utf16Texts>("texts");
    const QString letter(QLatin1Char('a'));
    const QString mark(QChar(QChar::ByteOrderMark));
    const QString swapped(QChar(QChar::ByteOrderSwapped));
    const QString face = QStringLiteral("\U0001f600");
    const QString zero(QChar(0));
    QTest::newRow("units alone") << Utf16Texts{
        0x10000, [](int i) { return QString(QChar(static_cast<ushort>(i))); }};
    QTest::newRow("pairs at the borders of surrogates") << pairsAtTheBorders();
    QTest::newRow("random") << randomUnits(1000000);
    QTest::newRow("byte order marks")
        << listed<QString>({mark + letter, letter + mark, mark + mark, mark + face, face + mark,
                            swapped + letter, letter + swapped});
    QTest::newRow("zeros") << listed<QString>(
        {zero + letter, letter + zero, letter + zero + letter});
    QTest::newRow("no unit") << listed<QString>({QString(), QStringLiteral("")});
}

void tst_Dorvy3Connection_Utf8::toTheServer()
{
    QFETCH(Utf16Texts, texts);
    for (int i = 0; i < texts.count; ++i) {
        const QString text = texts.at(i);
        if (connection->server(text) != utf8->fromUnicode(text)) {
            QString escaped;
            QDebug(&escaped) << text;
            QFAIL(qPrintable(escaped));
        }
    }
}

QTEST_GUILESS_MAIN(tst_Dorvy3Connection_Utf8)
#include "tst_dorvy3connection_utf8.moc"
