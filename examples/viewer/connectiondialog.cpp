// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
// ConnectionDialog: asks where to connect, until a connection is made.
#include "examples/viewer/connectiondialog.h"

#include "examples/viewer/errorbar.h"

#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QSpinBox>

#include <utility>

ConnectionDialog::ConnectionDialog(const ConnectionSettings &settings, Attempt connectionAttempt,
                                   QWidget *parent)
    : QDialog(parent)
    , attempt(std::move(connectionAttempt))
    , errorBar(new ErrorBar(this))
    , port(new QSpinBox(this))
{
    setWindowTitle(tr("Connect"));
    auto *form = new QFormLayout(this);
    form->addRow(errorBar);
    host = addField(form, QStringLiteral("host"), tr("&Host"), settings.host);
    addPort(form, settings.port);
    database = addField(form, QStringLiteral("database"), tr("&Database"), settings.database);
    user = addField(form, QStringLiteral("user"), tr("&User"), settings.user);
    password = addField(form, QStringLiteral("password"), tr("Pass&word"), settings.password);
    password->setEchoMode(QLineEdit::Password);
    options = addField(form, QStringLiteral("options"), tr("O&ptions"), settings.options);
    driver = addField(form, QStringLiteral("driver"), tr("Dri&ver"), settings.driver);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &ConnectionDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ConnectionDialog::reject);
    form->addRow(buttons);
}

void ConnectionDialog::showError(const QSqlError &error)
{
    errorBar->show(error);
}

void ConnectionDialog::accept()
{
    const ConnectionSettings chosen = settings();
    const QSqlError error = attempt(chosen);
    showError(error);
    if (error.isValid()) {
        return;
    }
    saveSettings(chosen);
    QDialog::accept();
}

QLineEdit *ConnectionDialog::addField(QFormLayout *form, const QString &name, const QString &label,
                                      const QString &text)
{
    auto *field = new QLineEdit(text, this);
    field->setObjectName(name);
    field->setMinimumWidth(fontMetrics().averageCharWidth() * 40);
    form->addRow(label, field);
    return field;
}

void ConnectionDialog::addPort(QFormLayout *form, int number)
{
    port->setObjectName(QStringLiteral("port"));
    port->setRange(1, 65535);
    port->setValue(number);
    form->addRow(tr("P&ort"), port);
}

ConnectionSettings ConnectionDialog::settings() const
{
    ConnectionSettings chosen;
    chosen.driver = driver->text();
    chosen.host = host->text();
    chosen.port = port->value();
    chosen.database = database->text();
    chosen.user = user->text();
    chosen.password = password->text();
    chosen.options = options->text();
    return chosen;
}
