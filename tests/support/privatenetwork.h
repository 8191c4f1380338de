// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// PrivateNetwork: a network of two hosts that a test can cut.
#ifndef PRIVATENETWORK_H
#define PRIVATENETWORK_H

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

/*!
    Two network namespaces without names, joined by a virtual cable: the near one, in which the test
    goes on, and the far one, for what plays the server. Nothing in them is seen outside, and both
    vanish with the test program, whatever way that ends. Unix sockets reach across.
*/
class PrivateNetwork
{
public:
    PrivateNetwork();
    ~PrivateNetwork();

    /*!
        Moves the calling thread into the near namespace, with all that it starts from then on. That
        takes root's rights or, in a program of a single thread, the right to make user namespaces.
        False on failure; why() says why.
    */
    bool enter();

    QString why() const { return reason; }

    /*! The far host's address. */
    QString farAddress() const { return QStringLiteral("192.0.2.2"); } // RFC 5737, for examples

    /*! Runs \a code in a thread in the far namespace and waits for it. */
    void inFar(const std::function<void()> &code) const;

    /*! Cuts the cable: nothing that either side sends arrives any more, and neither is told. */
    bool pull() const { return hlpFarLink(QStringLiteral("down")); }

    /*! Mends it; packets that were sent meanwhile are lost. */
    bool plug() const { return hlpFarLink(QStringLiteral("up")); }

private:
    Q_DISABLE_COPY(PrivateNetwork)

    bool hlpFail(const QString &text);
    bool hlpMakeNear();
    bool hlpMakeFar();
    bool hlpJoin();
    bool hlpFarLink(const QString &state) const;

    QString reason;
    int farNamespace; // a descriptor of it
};

#endif // PRIVATENETWORK_H
