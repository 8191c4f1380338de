// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ErrorBar: an error above the rows, where it is in nobody's way.
#ifndef ERRORBAR_H
#define ERRORBAR_H

#include <QtWidgets/QFrame>

class QLabel;
class QSqlError;

/*! Shows the texts of an error until it is closed; hidden while there is none. */
class ErrorBar : public QFrame
{
    Q_OBJECT

public:
    explicit ErrorBar(QWidget *parent = nullptr);

    /*! Shows both texts of \a error, or hides the bar if it is none. */
    void show(const QSqlError &error);

    QString text() const;

private:
    QLabel *label;
};

#endif // ERRORBAR_H
