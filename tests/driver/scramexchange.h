// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ScramExchange: the server's side of a SCRAM-SHA-256 login, in the hands of a test.
#ifndef SCRAMEXCHANGE_H
#define SCRAMEXCHANGE_H

#include "tests/support/scriptedpeer.h"

#include <QtCore/QMessageAuthenticationCode>

#include <openssl/evp.h>

/*!
    Each step sends what it is given, right or wrong, and reads the client's answer. The salt is
    "salt of sixteen!".

    Source: RFC 5802 and RFC 7677; PostgreSQL protocol 3.0, SASL authentication.
*/
class ScramExchange
{
public:
    explicit ScramExchange(PeerLink &peerLink)
        : link(peerLink)
    {
    }

    /*! Takes the startup message, offers SCRAM-SHA-256 and reads the client's first message. */
    void begin()
    {
        link.readUntyped();
        link.send(ServerMessage::authentication(10, QByteArray("SCRAM-SHA-256\0\0", 15)));
        const QByteArray body = link.read().body;
        clientFirst = body.mid(body.indexOf("n=")); // without mechanism and channel binding
    }

    /*! What the client has drawn for this login. */
    QByteArray nonce() const { return clientFirst.mid(clientFirst.indexOf("r=") + 2); }

    /*! The right challenge, with a count of one's choice. */
    QByteArray challenge(const QByteArray &iterations) const
    {
        return "r=" + nonce() + "server,s=" + salt().toBase64() + ",i=" + iterations;
    }

    /*! Sends the first message and reads the client's final one; false when it has gone. */
    bool send(const QByteArray &challenge)
    {
        serverFirst = challenge;
        link.send(ServerMessage::authentication(11, challenge));
        clientFinal = link.read().body;
        return !clientFinal.isEmpty();
    }

    /*! What a server sends last that knows \a password; by the challenge's count. */
    QByteArray signature(const QByteArray &password, int iterations) const
    {
        QByteArray salted(32, '\0');
        PKCS5_PBKDF2_HMAC(password.constData(), password.size(),
                          reinterpret_cast<const unsigned char *>(salt().constData()),
                          salt().size(), iterations, EVP_sha256(), salted.size(),
                          reinterpret_cast<unsigned char *>(salted.data()));
        const QByteArray said = clientFirst + ',' + serverFirst + ',' +
                                clientFinal.left(clientFinal.lastIndexOf(",p="));
        return "v=" + hlpSign(hlpSign(salted, "Server Key"), said).toBase64();
    }

    /*! What the client has said so far. */
    QByteArray said() const { return clientFirst + clientFinal; }

    void finish(const QByteArray &signature)
    {
        link.send(ServerMessage::authentication(12, signature));
    }

private:
    static QByteArray salt() { return QByteArrayLiteral("salt of sixteen!"); }
    static QByteArray hlpSign(const QByteArray &key, const QByteArray &text)
    {
        return QMessageAuthenticationCode::hash(text, key, QCryptographicHash::Sha256);
    }

    PeerLink &link;
    QByteArray clientFirst;
    QByteArray serverFirst;
    QByteArray clientFinal;
};

#endif // SCRAMEXCHANGE_H
