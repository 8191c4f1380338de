// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ViewerWindow: tables on the left, a query and its rows on the right.
#ifndef VIEWERWINDOW_H
#define VIEWERWINDOW_H

#include "examples/viewer/connectionsettings.h"

#include <QtSql/QSqlError>
#include <QtWidgets/QMainWindow>

class ErrorBar;
class PagedModel;
class QAction;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QTableView;
class QToolBar;

/*!
    A window on one database. Choosing a table writes the SELECT that shows it and runs it; any other
    statement can be typed. Everything is asked of the server in the thread of the window, which waits
    for the answer.
*/
class ViewerWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit ViewerWindow(QWidget *parent = nullptr);
    ~ViewerWindow() override;

    /*! Leaves the connection there is and makes another. Returns the error of it, if any. */
    QSqlError connectTo(const ConnectionSettings &settings);

    /*!
        Opens the connection dialog with \a settings; \a error is that of an attempt made before.
    */
    void askForConnection(const ConnectionSettings &settings, const QSqlError &error = QSqlError());

    /*! Connects straight away; the dialog comes where that fails. */
    void connectOrAsk(const ConnectionSettings &settings);

private:
    QWidget *makeTables();
    QWidget *makeQuery();
    void setUpSql();
    void setUpRows();
    void makeActions();
    QAction *addButton(const QString &text, const QString &toolTip, void (ViewerWindow::*slot)());
    void connectAnew();
    void reconnect();
    bool isConnected();
    void listTables();
    void showTable();
    void runSql();
    void cancel();
    void disconnectDatabase();
    void fitColumns();
    void showProgress();

    QSqlDatabase database;
    PagedModel *model;
    QListWidget *tables;
    QPlainTextEdit *sql;
    QTableView *view;
    ErrorBar *errorBar;
    QLabel *rowCount;
    QToolBar *toolBar;
    QAction *cancelAction = nullptr;
    QList<QAction *> actionsOfDatabase; // of no use without one
};

#endif // VIEWERWINDOW_H
