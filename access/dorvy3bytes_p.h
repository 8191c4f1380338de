// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The one place where bytes of the wire are read and written, always within their bounds.
#ifndef DORVY3BYTES_P_H
#define DORVY3BYTES_P_H

#include <QtCore/QByteArray>
#include <QtCore/QtEndian>

#include <cstring>

/*!
    Reads big-endian values from a stretch of bytes, one behind the other. A read that would pass
    the end gives 0 and spoils the reader: check isGood() before believing anything.
*/
class Dorvy3ByteReader
{
public:
    Dorvy3ByteReader(const char *bytes, int length)
        : position(bytes)
        , left(bytes && length > 0 ? static_cast<size_t>(length) : 0)
        , good(true)
    {
    }

    bool isGood() const { return good; }

    /*! Bytes not read yet. */
    size_t remaining() const { return left; }

    template<typename T>
    T read()
    {
        if (left < sizeof(T)) {
            good = false;
            left = 0;
            return T();
        }
        const T value = qFromBigEndian<T>(reinterpret_cast<const uchar *>(position));
        position += sizeof(T);
        left -= sizeof(T);
        return value;
    }

    /*! The bits of a big-endian IEEE 754 number. */
    float readFloat() { return hlpFromBits<float>(read<quint32>()); }
    double readDouble() { return hlpFromBits<double>(read<quint64>()); }

private:
    template<typename Number, typename Bits>
    static Number hlpFromBits(Bits bits)
    {
        static_assert(sizeof(Number) == sizeof(Bits), "IEEE 754 sizes");
        Number number;
        std::memcpy(&number, &bits, sizeof(number));
        return number;
    }

    const char *position;
    size_t left;
    bool good;
};

/*!
    Writes behind the end of a byte array, into its reserved space and without changing its size:
    the caller takes the bytes in by resizing. The constructor sees to it that \a needed bytes are
    reserved and gives the array memory of its own; a write that would pass them is not made.
*/
class Dorvy3ByteWriter
{
public:
    Dorvy3ByteWriter(QByteArray &out, int needed)
        : left(needed)
    {
        constexpr int SpareBytes = 256; // so that a few small values more need no new memory
        // A shared array gets its own memory without room to spare unless it is asked for.
        if (!out.isDetached() || out.capacity() - out.size() < needed) {
            out.reserve(out.size() + needed + SpareBytes);
        }
        position = out.data() + out.size(); // data() detaches a shared array
    }

    void writeBytes(const char *bytes, int length)
    {
        if (!hlpTake(length)) {
            return;
        }
        std::memcpy(position, bytes, static_cast<size_t>(length));
        position += length;
    }

    template<typename T>
    void write(T value)
    {
        if (!hlpTake(static_cast<int>(sizeof(T)))) {
            return;
        }
        qToBigEndian<T>(value, reinterpret_cast<uchar *>(position));
        position += sizeof(T);
    }

    /*! The bits of an IEEE 754 number. */
    void writeFloat(float value) { write(hlpToBits<quint32>(value)); }
    void writeDouble(double value) { write(hlpToBits<quint64>(value)); }

private:
    bool hlpTake(int length)
    {
        Q_ASSERT(length >= 0 && length <= left);
        if (length < 1 || length > left) {
            return false;
        }
        left -= length;
        return true;
    }

    template<typename Bits, typename Number>
    static Bits hlpToBits(Number number)
    {
        static_assert(sizeof(Number) == sizeof(Bits), "IEEE 754 sizes");
        Bits bits;
        std::memcpy(&bits, &number, sizeof(bits));
        return bits;
    }

    char *position;
    int left;
};

#endif // DORVY3BYTES_P_H
