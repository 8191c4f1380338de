// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ZeroBytes: large values that take no memory.
#ifndef ZEROBYTES_H
#define ZEROBYTES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/mman.h>

/*!
    As many zeros as one likes, which take no memory as long as nobody copies them: they are one page
    of the system's. What is made of them lives no longer than they do.
*/
class ZeroBytes
{
public:
    explicit ZeroBytes(size_t count)
        : size(count)
        , memory(mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        if (memory == MAP_FAILED) {
            qFatal("no zeros");
        }
    }
    ~ZeroBytes() { munmap(memory, size); }

    /*! All of them as bytes or as a text. */
    QByteArray bytes() const
    {
        return QByteArray::fromRawData(static_cast<const char *>(memory), static_cast<int>(size));
    }
    QString text() const
    {
        return QString::fromRawData(static_cast<const QChar *>(memory),
                                    static_cast<int>(size / sizeof(QChar)));
    }

private:
    Q_DISABLE_COPY(ZeroBytes)

    size_t size;
    void *memory;
};

#endif // ZEROBYTES_H
