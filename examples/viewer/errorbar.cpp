// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ErrorBar: an error above the rows, where it is in nobody's way.
#include "examples/viewer/errorbar.h"

#include <QtSql/QSqlError>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QStyle>
#include <QtWidgets/QToolButton>

namespace {

// The driver's text is the server's message, or what was tried; the database's says more of it.
QString textOf(const QSqlError &error)
{
    QStringList lines{error.driverText().trimmed(), error.databaseText().trimmed()};
    lines.removeAll(QString());
    lines.removeDuplicates();
    return lines.join(QLatin1Char('\n'));
}

} // namespace

ErrorBar::ErrorBar(QWidget *parent)
    : QFrame(parent)
    , label(new QLabel(this))
{
    setFrameShape(QFrame::StyledPanel);
    setStyleSheet(QStringLiteral("ErrorBar { background: #fde8e8; } QLabel { color: #7a1010; }"));
    label->setTextFormat(Qt::PlainText); // what the server says is no markup
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setWordWrap(true);
    auto *button = new QToolButton(this);
    button->setObjectName(QStringLiteral("closeError"));
    button->setIcon(style()->standardIcon(QStyle::SP_DockWidgetCloseButton));
    button->setAutoRaise(true);
    button->setToolTip(tr("Close"));
    connect(button, &QToolButton::clicked, this, &QWidget::hide);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 4, 4);
    layout->addWidget(label, 1);
    layout->addWidget(button, 0, Qt::AlignTop);
    hide();
}

void ErrorBar::show(const QSqlError &error)
{
    label->setText(textOf(error));
    setVisible(error.isValid());
}

QString ErrorBar::text() const
{
    return label->text();
}
