// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ViewerWindow: tables on the left, a query and its rows on the right.
#include "examples/viewer/viewerwindow.h"

#include "examples/viewer/connectiondialog.h"
#include "examples/viewer/errorbar.h"
#include "examples/viewer/pagedmodel.h"
#include "examples/viewer/tablequery.h"
#include "examples/viewer/waitcursor.h"

#include <QtCore/QSignalBlocker>
#include <QtGui/QFontDatabase>
#include <QtSql/QSqlQuery>
#include <QtWidgets/QAction>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QLabel>
#include <QtWidgets/QListWidget>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QSplitter>
#include <QtWidgets/QStatusBar>
#include <QtWidgets/QTableView>
#include <QtWidgets/QToolBar>
#include <QtWidgets/QVBoxLayout>

namespace {

constexpr int WidestColumn = 320; // pixels, until the user widens it
constexpr int SpareCharacters = 4;
constexpr int SqlLines = 4;
constexpr int SqlMargin = 12;   // pixels of frame and document around them
constexpr int RowMargin = 6;    // pixels
constexpr int StatusIndent = 6; // pixels

QString connectionName()
{
    return QStringLiteral("viewer");
}

QStringList sorted(QStringList names)
{
    names.sort();
    return names;
}

void addNames(QListWidget *list, const QStringList &names, const QString &kind)
{
    for (const QString &name : names) {
        auto *item = new QListWidgetItem(name, list);
        item->setToolTip(kind);
    }
}

} // namespace

ViewerWindow::ViewerWindow(QWidget *parent)
    : QMainWindow(parent)
    , model(new PagedModel(this))
    , tables(new QListWidget)
    , sql(new QPlainTextEdit)
    , view(new QTableView)
    , errorBar(new ErrorBar)
    , rowCount(new QLabel)
    , toolBar(addToolBar(tr("Actions")))
{
    auto *halves = new QSplitter(this);
    halves->addWidget(makeTables());
    halves->addWidget(makeQuery());
    halves->setStretchFactor(1, 1);
    halves->setSizes({200, 700});
    setCentralWidget(halves);
    makeActions();
    rowCount->setObjectName(QStringLiteral("rowCount"));
    rowCount->setIndent(StatusIndent);
    statusBar()->addWidget(rowCount);
    connect(model, &PagedModel::progressed, this, &ViewerWindow::showProgress);
    connect(model, &PagedModel::failed, errorBar, &ErrorBar::show);
    disconnectDatabase();
    resize(1000, 640);
}

ViewerWindow::~ViewerWindow()
{
    disconnectDatabase();
}

QSqlError ViewerWindow::connectTo(const ConnectionSettings &settings)
{
    const WaitCursor wait;
    disconnectDatabase();
    database = addDatabase(settings, connectionName());
    if (!database.open()) {
        QSqlError error = database.lastError();
        disconnectDatabase();
        return error;
    }
    setWindowTitle(tr("%1 on %2 – dorvy-viewer").arg(settings.database, settings.host));
    for (QAction *action : qAsConst(actionsOfDatabase)) {
        action->setEnabled(true);
    }
    listTables();
    return QSqlError();
}

void ViewerWindow::askForConnection(const ConnectionSettings &settings, const QSqlError &error)
{
    auto *dialog = new ConnectionDialog(
        settings, [this](const ConnectionSettings &chosen) { return connectTo(chosen); }, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->showError(error);
    dialog->open();
}

void ViewerWindow::connectOrAsk(const ConnectionSettings &settings)
{
    const QSqlError error = connectTo(settings);
    if (error.isValid()) {
        askForConnection(settings, error);
    }
}

QWidget *ViewerWindow::makeTables()
{
    auto *side = new QWidget;
    auto *layout = new QVBoxLayout(side);
    layout->setContentsMargins(6, 6, 0, 0);
    tables->setObjectName(QStringLiteral("tables"));
    auto *label = new QLabel(tr("Tables and &views"));
    label->setBuddy(tables);
    layout->addWidget(label);
    layout->addWidget(tables);
    connect(tables, &QListWidget::itemSelectionChanged, this, &ViewerWindow::showTable);
    return side;
}

QWidget *ViewerWindow::makeQuery()
{
    auto *side = new QWidget;
    auto *layout = new QVBoxLayout(side);
    layout->setContentsMargins(0, 6, 6, 0);
    setUpSql();
    setUpRows();
    layout->addWidget(sql);
    layout->addWidget(errorBar);
    layout->addWidget(view, 1);
    return side;
}

void ViewerWindow::setUpSql()
{
    sql->setObjectName(QStringLiteral("sql"));
    sql->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    sql->setFixedHeight(QFontMetrics(sql->font()).lineSpacing() * SqlLines + SqlMargin);
    sql->setPlaceholderText(tr("One SQL statement, Ctrl+Return runs it"));
    sql->setToolTip(
        tr("Cast columns of types that the driver does not read, such as inet or arrays, to text: "
           "one of them ends the program.\nA statement that returns rows runs in a transaction of "
           "its own, which is rolled back."));
}

void ViewerWindow::setUpRows()
{
    view->setObjectName(QStringLiteral("rows"));
    view->setModel(model);
    view->setAlternatingRowColors(true);
    view->setWordWrap(false);
    view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + RowMargin);
    connect(model, &PagedModel::modelReset, this, &ViewerWindow::fitColumns);
}

void ViewerWindow::makeActions()
{
    toolBar->setMovable(false);
    addButton(tr("&Connect…"), tr("Connect to another database"), &ViewerWindow::connectAnew);
    actionsOfDatabase +=
        addButton(tr("Recon&nect"), tr("Open the same connection anew"), &ViewerWindow::reconnect);
    actionsOfDatabase +=
        addButton(tr("Re&fresh"), tr("Read the list of tables again"), &ViewerWindow::listTables);
    QAction *run =
        addButton(tr("&Run"), tr("Run the statement (Ctrl+Return)"), &ViewerWindow::runSql);
    run->setShortcuts({QKeySequence(QStringLiteral("Ctrl+Return")), QKeySequence(Qt::Key_F5)});
    actionsOfDatabase += run;
    cancelAction = addButton(tr("C&ancel"),
                             tr("End a query that is half read, and what it holds on the server "
                                "(Esc)"),
                             &ViewerWindow::cancel);
    cancelAction->setShortcut(QKeySequence(Qt::Key_Escape));
}

QAction *ViewerWindow::addButton(const QString &text, const QString &toolTip,
                                 void (ViewerWindow::*slot)())
{
    QAction *action = toolBar->addAction(text);
    action->setToolTip(toolTip);
    connect(action, &QAction::triggered, this, slot);
    return action;
}

void ViewerWindow::connectAnew()
{
    askForConnection(loadSettings());
}

// After a restart of the server, and after a read of a temporary table, which can block all reads of a
// connection, a new connection is the way on.
void ViewerWindow::reconnect()
{
    const WaitCursor wait;
    model->clear();
    database.close();
    if (database.open()) {
        listTables();
    } else {
        errorBar->show(database.lastError());
    }
}

// A query of a closed database fails without an error of its own.
bool ViewerWindow::isConnected()
{
    const QSqlError lost(tr("The connection is lost."), QString(), QSqlError::ConnectionError);
    errorBar->show(database.isOpen() ? QSqlError() : lost);
    return database.isOpen();
}

// tables() gives nothing where it fails and does not say why; a query does.
void ViewerWindow::listTables()
{
    const WaitCursor wait;
    const QSignalBlocker blocker(tables);
    tables->clear();
    if (!isConnected()) {
        return;
    }
    QSqlQuery probe(database);
    probe.exec(QStringLiteral("SELECT 1"));
    errorBar->show(probe.lastError());
    addNames(tables, sorted(database.tables(QSql::Tables)), tr("Table"));
    addNames(tables, sorted(database.tables(QSql::Views)), tr("View"));
}

void ViewerWindow::showTable()
{
    const QListWidgetItem *item = tables->currentItem();
    if (!item || !item->isSelected() || !isConnected()) {
        return;
    }
    model->clear(); // a table may be chosen because the query before fails all others
    QSqlError error;
    sql->setPlainText(selectOf(database, item->text(), &error));
    errorBar->show(error);
    if (!error.isValid()) {
        runSql();
    }
}

void ViewerWindow::runSql()
{
    const QString text = sql->toPlainText();
    if (!text.trimmed().isEmpty() && isConnected()) {
        model->run(database, text);
    }
}

void ViewerWindow::cancel()
{
    model->cancel();
}

// Queries go before their database, and the last copy of the database before it is removed.
void ViewerWindow::disconnectDatabase()
{
    model->clear();
    const QSignalBlocker blocker(tables);
    tables->clear();
    for (QAction *action : qAsConst(actionsOfDatabase)) {
        action->setEnabled(false);
    }
    setWindowTitle(tr("dorvy-viewer"));
    const QString name = database.connectionName();
    database.close();
    database = QSqlDatabase();
    if (!name.isEmpty()) {
        QSqlDatabase::removeDatabase(name);
    }
}

// To the first page, and a little more: numbers grow with the rows.
void ViewerWindow::fitColumns()
{
    const int more = view->fontMetrics().averageCharWidth() * SpareCharacters;
    view->resizeColumnsToContents();
    for (int column = 0; column < model->columnCount(); ++column) {
        view->setColumnWidth(column, qMin(view->columnWidth(column) + more, WidestColumn));
    }
}

void ViewerWindow::showProgress()
{
    rowCount->setText(model->summary());
    cancelAction->setEnabled(model->isReading());
}
