// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The reader of shared objects: any bytes give what stands inside them, or a reason why not.
#include "tools/dorvy-check/elffile.h"

#include "fuzz/fuzzinput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const ElfFile file(QStringLiteral("/plugin.so"), bytes);
    const int entries = bytes.size() / static_cast<int>(sizeof(Elf64_Dyn));
    require(file.needed().size() <= entries, "a library that is needed stands in the file");
    require(file.problem().isEmpty() || file.needed().isEmpty(), "a broken file needs nothing");
    file.runPathFolders();
    return 0;
}
