// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A text that an object of JSON has, or not.
#ifndef JSONTEXT_H
#define JSONTEXT_H

#include <QtCore/QJsonObject>
#include <QtCore/QString>

/*! The text \a name of \a object; an empty one where it has none. */
inline QString jsonText(const QJsonObject &object, const char *name)
{
    return object.value(QLatin1String(name)).toString();
}

#endif // JSONTEXT_H
