// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ConnectionDialog: where to connect, and what is remembered of it.
#include "tests/examples/viewertest.h"

#include <QtWidgets/QLineEdit>
#include <QtWidgets/QSpinBox>

class tst_ViewerDialog : public QObject, private ViewerTest
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(start()); }
    void init() { QVERIFY(openWindow()); }
    void cleanup() { closeWindow(); }

    void dialogConnects();
    void dialogRemembersAllButThePassword();
    void dialogStaysWithTheErrorOfAnAttempt_data();
    void dialogStaysWithTheErrorOfAnAttempt();
    void refusedConnectionAsksForAnother();
    void goodConnectionDoesNotAsk();
    void anotherConnectionLetsGoOfTheFirst();

private:
    ConnectionDialog *openDialog();
    void fill(ConnectionDialog *dialog, const ConnectionSettings &values) const;
};

void tst_ViewerDialog::dialogConnects()
{
    window.reset(); // which gives its connection's name back
    window.reset(new ViewerWindow);
    window->show();
    ConnectionDialog *dialog = openDialog();
    fill(dialog, settings());
    QTest::keyClick(dialog, Qt::Key_Return);
    QTRY_VERIFY(!window->findChild<ConnectionDialog *>());
    QCOMPARE(window->windowTitle(), QStringLiteral("postgres on 127.0.0.1 – dorvy-viewer"));
    QCOMPARE(tables()->count(), 3);
}

void tst_ViewerDialog::dialogRemembersAllButThePassword()
{
    ConnectionSettings typed = settings();
    typed.password = QStringLiteral("kept in no file");
    typed.options = QStringLiteral("connect_timeout=7");
    ConnectionDialog *dialog = openDialog();
    fill(dialog, typed);
    QTest::keyClick(dialog, Qt::Key_Return);
    QTRY_VERIFY(!window->findChild<ConnectionDialog *>());
    QSettings().sync();
    QFile file(QSettings().fileName());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(!file.readAll().contains("kept in no file"));

    dialog = openDialog();
    const auto shown = [dialog](const char *name) {
        return dialog->findChild<QLineEdit *>(QLatin1String(name))->text();
    };
    QCOMPARE(shown("host"), typed.host);
    QCOMPARE(shown("database"), typed.database);
    QCOMPARE(shown("user"), typed.user);
    QCOMPARE(shown("options"), typed.options);
    QCOMPARE(shown("driver"), typed.driver);
    QCOMPARE(shown("password"), QString());
    QCOMPARE(dialog->findChild<QSpinBox *>(QStringLiteral("port"))->value(), typed.port);
}

void tst_ViewerDialog::dialogStaysWithTheErrorOfAnAttempt_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("error");
    QTest::newRow("no such database")
        << QStringLiteral("database") << QStringLiteral("nowhere") << QStringLiteral("\"nowhere\"");
    QTest::newRow("no such user") << QStringLiteral("user") << QStringLiteral("nobody's")
                                  << QStringLiteral("\"nobody's\"");
    QTest::newRow("no such option") << QStringLiteral("options") << QStringLiteral("colour=red")
                                    << QStringLiteral("\"colour\"");
    QTest::newRow("no such driver") << QStringLiteral("driver") << QStringLiteral("QNOTHING")
                                    << QStringLiteral("Driver not loaded");
}

void tst_ViewerDialog::dialogStaysWithTheErrorOfAnAttempt()
{
    QFETCH(QString, field);
    QFETCH(QString, value);
    QFETCH(QString, error);
    ConnectionDialog *dialog = openDialog();
    fill(dialog, settings());
    QLineEdit *edit = dialog->findChild<QLineEdit *>(field);
    const QString right = edit->text();
    type(edit, value);
    if (field == QLatin1String("driver")) {
        QTest::ignoreMessage(QtWarningMsg, "QSqlDatabase: QNOTHING driver not loaded");
        QTest::ignoreMessage(
            QtWarningMsg, QRegularExpression(QStringLiteral("QSqlDatabase: available drivers:")));
    }
    QTest::keyClick(dialog, Qt::Key_Return);
    const ErrorBar *bar = dialog->findChild<ErrorBar *>();
    QVERIFY(dialog->isVisible());
    QVERIFY(bar->isVisible());
    QVERIFY2(bar->text().contains(error), qPrintable(bar->text()));

    type(edit, right);
    QTest::keyClick(dialog, Qt::Key_Return);
    QTRY_VERIFY(!window->findChild<ConnectionDialog *>());
    QCOMPARE(tables()->count(), 3);
}

void tst_ViewerDialog::refusedConnectionAsksForAnother()
{
    ConnectionSettings refused = settings();
    refused.user = QStringLiteral("nobody's");
    window->connectOrAsk(refused);
    const auto *dialog = window->findChild<ConnectionDialog *>();
    QVERIFY(dialog && dialog->isVisible());
    const auto *bar = dialog->findChild<ErrorBar *>();
    QVERIFY(bar->isVisible());
    QVERIFY2(bar->text().contains(QStringLiteral("\"nobody's\"")), qPrintable(bar->text()));
    QCOMPARE(dialog->findChild<QLineEdit *>(QStringLiteral("user"))->text(), refused.user);
}

void tst_ViewerDialog::goodConnectionDoesNotAsk()
{
    window->connectOrAsk(settings());
    QVERIFY(!window->findChild<ConnectionDialog *>());
    QCOMPARE(tables()->count(), 3);
}

void tst_ViewerDialog::anotherConnectionLetsGoOfTheFirst()
{
    cluster.createDatabase(QStringLiteral("other"));
    choose(QStringLiteral("item"));
    ConnectionSettings other = settings();
    other.database = QStringLiteral("other");
    QVERIFY(!window->connectTo(other).isValid());
    QCOMPARE(tables()->count(), 0);
    QCOMPARE(rows()->model()->rowCount(), 0);
    QCOMPARE(rowCount(), QString());
    QTRY_COMPARE(sessions(QStringLiteral("datname = 'postgres'")), 0);
}

ConnectionDialog *tst_ViewerDialog::openDialog()
{
    press(QStringLiteral("Connect…"));
    auto *dialog = window->findChild<ConnectionDialog *>();
    return QTest::qWaitForWindowExposed(dialog) ? dialog : nullptr;
}

void tst_ViewerDialog::fill(ConnectionDialog *dialog, const ConnectionSettings &values) const
{
    const auto line = [dialog](const char *name, const QString &text) {
        type(dialog->findChild<QLineEdit *>(QLatin1String(name)), text);
    };
    line("driver", values.driver);
    line("host", values.host);
    line("database", values.database);
    line("user", values.user);
    line("password", values.password);
    line("options", values.options);
    type(dialog->findChild<QSpinBox *>(QStringLiteral("port")), QString::number(values.port));
}

QTEST_MAIN(tst_ViewerDialog)
#include "tst_viewer_dialog.moc"
