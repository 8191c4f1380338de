// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// ElfFile: what the dynamic loader would read in a shared object.
#include "elffile.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <cstring>

namespace {

constexpr qint64 MaxFileBytes =
    512LL * 1024 * 1024; // far beyond any plugin, with all it says for debuggers
constexpr int MaxStringBytes = 4096;

QString hlpMachine(int machine)
{
    switch (machine) {
    case EM_386:
        return QStringLiteral("i386");
    case EM_ARM:
        return QStringLiteral("ARM");
    case EM_AARCH64:
        return QStringLiteral("AArch64");
    default:
        return QStringLiteral("machine %1").arg(machine);
    }
}

} // namespace

ElfFile::ElfFile(const QString &path)
    : filePath(path)
    , header()
    , wantsStaticTls(false)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        trouble = QStringLiteral("cannot be read: ") + file.errorString();
    } else if (file.size() > MaxFileBytes) {
        trouble = QStringLiteral("is too large for a plugin");
    } else {
        content = file.readAll();
        hlpParse();
    }
}

ElfFile::ElfFile(const QString &path, const QByteArray &bytes)
    : filePath(path)
    , content(bytes)
    , header()
    , wantsStaticTls(false)
{
    hlpParse();
}

template<typename T>
bool ElfFile::hlpAt(quint64 offset, T *value) const
{
    const auto size = static_cast<quint64>(content.size());
    if (offset > size || size - offset < sizeof(T)) {
        return false;
    }
    std::memcpy(value, content.constData() + offset, sizeof(T));
    return true;
}

void ElfFile::hlpParse()
{
    trouble = hlpCheckHeader();
    if (trouble.isEmpty()) {
        trouble = hlpCheckEnd();
    }
    if (trouble.isEmpty()) {
        trouble = hlpReadSegments();
    }
}

// What the driver is built for, and so whoever looks for it: x86-64.
QString ElfFile::hlpCheckHeader()
{
    if (content.isEmpty()) {
        return QStringLiteral("is empty");
    }
    if (!content.startsWith(ELFMAG)) {
        return QStringLiteral("is no shared object");
    }
    if (!hlpAt(0, &header)) {
        return QStringLiteral("is truncated");
    }
    if (header.e_ident[EI_CLASS] != ELFCLASS64) {
        return QStringLiteral("is a 32-bit file, and Qt here is a 64-bit one");
    }
    if (header.e_ident[EI_DATA] != ELFDATA2LSB || header.e_machine != EM_X86_64) {
        return QStringLiteral("is for another machine (%1), and Qt here is for x86-64")
            .arg(hlpMachine(header.e_machine));
    }
    return header.e_type == ET_DYN || header.e_type == ET_EXEC
               ? QString()
               : QStringLiteral("is no shared object, but another ELF file");
}

// Linkers put the section headers last: a file that was cut off lacks them.
QString ElfFile::hlpCheckEnd() const
{
    const quint64 sections = quint64(header.e_shnum) * header.e_shentsize;
    const auto size = static_cast<quint64>(content.size());
    if (header.e_shoff > size || size - header.e_shoff < sections) {
        return QStringLiteral("is truncated: it has %1 bytes").arg(content.size());
    }
    return QString();
}

QString ElfFile::hlpReadSegments()
{
    Elf64_Phdr dynamic = {};
    for (int i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        if (header.e_phentsize < sizeof(segment) ||
            !hlpAt(header.e_phoff + quint64(i) * header.e_phentsize, &segment)) {
            return QStringLiteral("is damaged: its segments cannot be read");
        }
        if (segment.p_type == PT_LOAD) {
            segments.append({segment.p_vaddr, segment.p_offset, segment.p_filesz});
        } else if (segment.p_type == PT_DYNAMIC) {
            dynamic = segment;
        } else if (segment.p_type == PT_INTERP) {
            interpreterPath = hlpString(segment.p_offset);
        }
    }
    if (dynamic.p_type != PT_DYNAMIC) {
        return QStringLiteral("is no shared object");
    }
    hlpReadDynamic(dynamic.p_offset, dynamic.p_filesz);
    return QString();
}

void ElfFile::hlpReadDynamic(quint64 offset, quint64 size)
{
    qint64 strings = -1;
    QVector<QPair<qint64, quint64>> names; // tag, offset in the strings
    Elf64_Dyn entry;
    for (quint64 at = 0; at < size && hlpAt(offset + at, &entry) && entry.d_tag != DT_NULL;
         at += sizeof(entry)) {
        if (entry.d_tag == DT_STRTAB) {
            strings = hlpOffset(entry.d_un.d_ptr);
        } else if (entry.d_tag == DT_NEEDED || entry.d_tag == DT_RUNPATH ||
                   entry.d_tag == DT_RPATH) {
            names.append({entry.d_tag, entry.d_un.d_val});
        } else if (entry.d_tag == DT_FLAGS) {
            wantsStaticTls = entry.d_un.d_val & DF_STATIC_TLS;
        }
    }
    for (const auto &name : qAsConst(names)) {
        const QString text =
            strings < 0 ? QString() : hlpString(static_cast<quint64>(strings) + name.second);
        if (name.first == DT_NEEDED) {
            neededNames += text;
        } else if (runPathText.isEmpty() || name.first == DT_RUNPATH) {
            runPathText = text; // where there are both, the loader follows RUNPATH
        }
    }
}

QString ElfFile::hlpString(quint64 offset) const
{
    if (offset >= static_cast<quint64>(content.size())) {
        return QString();
    }
    const QByteArray bytes = content.mid(static_cast<int>(offset), MaxStringBytes);
    return QString::fromLocal8Bit(
        bytes.constData(),
        static_cast<int>(qstrnlen(bytes.constData(), static_cast<uint>(bytes.size()))));
}

// Where in the file a part of memory comes from; -1 if it does not.
qint64 ElfFile::hlpOffset(quint64 address) const
{
    for (const Segment &segment : segments) {
        if (address >= segment.address && address - segment.address < segment.size) {
            const quint64 offset = segment.offset + (address - segment.address);
            return offset < static_cast<quint64>(content.size()) ? static_cast<qint64>(offset) : -1;
        }
    }
    return -1;
}

QStringList ElfFile::runPathFolders() const
{
    QStringList folders;
    const QString origin = QFileInfo(QFileInfo(filePath).canonicalFilePath()).path();
    QStringList parts = runPathText.split(QLatin1Char(':'));
    parts.removeAll(QString());
    for (QString folder : qAsConst(parts)) {
        folder.replace(QStringLiteral("${ORIGIN}"), origin);
        folder.replace(QStringLiteral("$ORIGIN"), origin);
        folders += folder;
    }
    return folders;
}
