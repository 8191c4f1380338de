// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// NamedCodec: a text codec that shows itself in every text.
#ifndef NAMEDCODEC_H
#define NAMEDCODEC_H

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QTextCodec>

/*!
    Turns "text" into "NAME:text", either way, so that a test sees which codec was chosen and that
    it was used. Made once with new: Qt's registry owns the codecs and deletes them at the end.
*/
class NamedCodec final : public QTextCodec
{
public:
    explicit NamedCodec(const QByteArray &codecName)
        : ownName(codecName)
    {
    }

    QByteArray name() const override { return ownName; }
    int mibEnum() const override { return 0; }

protected:
    QString convertToUnicode(const char *bytes, int length, ConverterState *) const override
    {
        return QString::fromLatin1(ownName + ':') + QString::fromLatin1(bytes, length);
    }

    QByteArray convertFromUnicode(const QChar *text, int length, ConverterState *) const override
    {
        return ownName + ':' + QString(text, length).toLatin1();
    }

private:
    QByteArray ownName;
};

#endif // NAMEDCODEC_H
