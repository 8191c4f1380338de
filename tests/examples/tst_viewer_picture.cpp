// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// The picture of the viewer in the documents: taken of a window scrolled past row 1,000.
#include "examples/viewer/viewerwindow.h"
#include "tests/support/pgcluster.h"

#include <QtCore/QLocale>
#include <QtCore/QTemporaryDir>
#include <QtGui/QFontInfo>
#include <QtGui/QImage>
#include <QtTest/QtTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QLabel>
#include <QtWidgets/QListWidget>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QScrollBar>
#include <QtWidgets/QTableView>

#include <memory>

/*!
    Where DORVY_VIEWER_PICTURE names a file, the picture is kept in it (scripts/screenshot). The file
    carries what can be read off the picture as its description, and the one in docs/ has to say the
    same as the window now.
*/
class tst_ViewerPicture : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void fontIsTheOneOfThePicture();
    void rowsPastTheThousandthAreShown();
    void rowsSayTheirOwnNumber();
    void tablesAreListed();
    void pictureIsTaken();
    void pictureInTheDocumentsShowsTheSame();

private:
    template<typename Widget>
    Widget *widget(const char *name) const
    {
        return window->findChild<Widget *>(QLatin1String(name));
    }
    QTableView *rows() const { return widget<QTableView>("rows"); }
    int firstRow() const { return rows()->rowAt(0) + 1; }
    int lastRow() const;
    QString description() const;
    void scrollPast(int row);

    PgCluster cluster;
    QTemporaryDir folder;
    std::unique_ptr<ViewerWindow> window;
};

namespace {

QString withCommas(int number)
{
    return QLocale(QLocale::English, QLocale::UnitedStates).toString(number);
}

// "journal" has rows that say their own number, and a column that is read as text.
QString tables()
{
    return QStringLiteral(
        "CREATE TABLE customer (id int, name text);"
        "CREATE TABLE invoice (id int, customer int, total numeric(12,2));"
        "CREATE TABLE journal (id int PRIMARY KEY, title text, client inet, amount numeric(12,2),"
        " booked timestamptz, checked bool);"
        "INSERT INTO journal SELECT g, 'row ' || to_char(g, 'FM999,999,999'),"
        " inet '10.0.0.0' + g, round(g * 7.31 % 1000, 2),"
        " timestamptz '2024-02-29 08:00+00' + g * interval '61 seconds',"
        " nullif(g % 4, 0) = 1 FROM generate_series(1, 300000) g;"
        "CREATE SCHEMA store; CREATE TABLE store.item (id int); CREATE TABLE store.shelf (id int);"
        "CREATE VIEW overdue AS SELECT id FROM invoice; CREATE VIEW store.stock AS SELECT 1 AS a");
}

} // namespace

void tst_ViewerPicture::initTestCase()
{
    QVERIFY2(cluster.start(), qPrintable(cluster.why()));
    cluster.run(tables());
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 9));
    window.reset(new ViewerWindow);
    ConnectionSettings settings;
    settings.host = cluster.socketDir();
    settings.port = cluster.port();
    settings.user = cluster.user();
    settings.options = QStringLiteral("options='-c TimeZone=UTC'");
    const QSqlError error = window->connectTo(settings);
    QVERIFY2(!error.isValid(), qPrintable(error.text()));
    window->resize(900, 560);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    auto *list = widget<QListWidget>("tables");
    auto *journal = list->findItems(QStringLiteral("journal"), Qt::MatchExactly).value(0);
    QVERIFY(journal);
    list->setCurrentItem(journal);
    scrollPast(1000);
}

void tst_ViewerPicture::fontIsTheOneOfThePicture()
{
    QCOMPARE(QFontInfo(window->font()).family(), QStringLiteral("DejaVu Sans"));
}

void tst_ViewerPicture::rowsPastTheThousandthAreShown()
{
    QVERIFY2(firstRow() >= 1000, qPrintable(description()));
    QVERIFY(lastRow() > firstRow() + 10);
    QCOMPARE(widget<QLabel>("rowCount")->text(), QStringLiteral("1,024 rows so far"));
    QVERIFY(rows()->columnViewportPosition(rows()->model()->columnCount() - 1) > 0);
}

void tst_ViewerPicture::rowsSayTheirOwnNumber()
{
    const QAbstractItemModel *model = rows()->model();
    for (int row = firstRow(); row <= lastRow(); ++row) {
        QCOMPARE(model->headerData(row - 1, Qt::Vertical).toInt(), row);
        QCOMPARE(model->index(row - 1, 0).data().toString(), QString::number(row));
        QCOMPARE(model->index(row - 1, 1).data().toString(),
                 QStringLiteral("row ") + withCommas(row));
    }
}

void tst_ViewerPicture::tablesAreListed()
{
    const auto *list = widget<QListWidget>("tables");
    QStringList names;
    for (int i = 0; i < list->count(); ++i) {
        names += list->item(i)->text();
        QVERIFY(list->viewport()->rect().contains(list->visualItemRect(list->item(i))));
    }
    QCOMPARE(names.join(QLatin1Char(' ')),
             QStringLiteral("customer invoice journal store.item store.shelf overdue store.stock"));
    QVERIFY(widget<QPlainTextEdit>("sql")->toPlainText().contains(QStringLiteral("client::text")));
}

void tst_ViewerPicture::pictureIsTaken()
{
    QImage picture = window->grab().toImage();
    QCOMPARE(picture.size(), QSize(900, 560));
    picture.setText(QStringLiteral("Description"), description());
    const QString chosen = QString::fromLocal8Bit(qgetenv("DORVY_VIEWER_PICTURE"));
    const QString file = chosen.isEmpty() ? folder.filePath(QStringLiteral("viewer.png")) : chosen;
    QVERIFY(picture.save(file));
    QVERIFY2(QFileInfo(file).size() < 150 * 1024, "too large for a document");
    qInfo("%s: %s", qPrintable(file), qPrintable(description()));
}

void tst_ViewerPicture::pictureInTheDocumentsShowsTheSame()
{
    const QImage picture(QStringLiteral(DORVY_DOCS_PICTURE));
    QCOMPARE(picture.size(), QSize(900, 560));
    QCOMPARE(picture.text(QStringLiteral("Description")), description());
}

// The last row that is shown whole.
int tst_ViewerPicture::lastRow() const
{
    return rows()->rowAt(rows()->viewport()->height() - rows()->rowHeight(0)) + 1;
}

QString tst_ViewerPicture::description() const
{
    return QStringLiteral("rows %1 to %2, %3")
        .arg(withCommas(firstRow()), withCommas(lastRow()), widget<QLabel>("rowCount")->text());
}

// A step of the bar is a row, and each page gives it more; the rows may end before.
void tst_ViewerPicture::scrollPast(int row)
{
    QScrollBar *bar = rows()->verticalScrollBar();
    for (int page = 0; page < 20 && bar->maximum() < row; ++page) {
        bar->setValue(bar->maximum());
        QCoreApplication::processEvents();
    }
    bar->setValue(row);
    QCoreApplication::processEvents();
}

QTEST_MAIN(tst_ViewerPicture)
#include "tst_viewer_picture.moc"
