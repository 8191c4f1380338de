// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The Debian packages of the libraries that the driver needs.
#include "debianpackage.h"

QString debianPackage(const QString &name)
{
    static const struct
    {
        const char *library;
        const char *package;
    } packages[] = {
        {"libssl.so.3", "libssl3"},
        {"libcrypto.so.3", "libssl3"},
        {"libgssapi_krb5.so.2", "libgssapi-krb5-2"},
        {"libkrb5.so.3", "libkrb5-3"},
        {"libk5crypto.so.3", "libk5crypto3"},
        {"libkrb5support.so.0", "libkrb5support0"},
        {"libcom_err.so.2", "libcom-err2"},
        {"libkeyutils.so.1", "libkeyutils1"},
        {"libldap-2.5.so.0", "libldap-2.5-0"},
        {"liblber-2.5.so.0", "libldap-2.5-0"},
        {"libsasl2.so.2", "libsasl2-2"},
        {"libgnutls.so.30", "libgnutls30"},
        {"libQt5Sql.so.5", "libqt5sql5"},
        {"libQt5Core.so.5", "libqt5core5a"},
        {"libstdc++.so.6", "libstdc++6"},
        {"libgcc_s.so.1", "libgcc-s1"},
        {"libc.so.6", "libc6"},
        {"libm.so.6", "libc6"},
    };
    for (const auto &entry : packages) {
        if (name == QLatin1String(entry.library)) {
            return QString::fromLatin1(entry.package);
        }
    }
    return QString();
}
