/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 */
/*!
 * \file
 * Questions to a result that libpq answers in several calls, each of which checks anew what it is
 * asked for.
 */
#ifndef PPQRESULT_H
#define PPQRESULT_H

#include <libpq-fe.h>

#ifdef __cplusplus
extern "C" {
#endif

/*!
 * A value of a result: PQgetisnull, PQgetlength and PQgetvalue in one.
 *
 * \return the length in bytes and points value at the bytes, behind which stands a zero; they are
 * the result's.  For SQL NULL, and for a row or a column that the result does not have, returns -1
 * and leaves value alone.
 */
int ppqValue(const PGresult *result, int row, int column, const char **value);

/*!
 * Whether two results have the same columns: as many, with the same names, types, sizes and
 * type modifiers.  Their formats may differ, as the description of a statement tells none.
 */
int ppqHasSameColumns(const PGresult *one, const PGresult *other);

#ifdef __cplusplus
}
#endif

#endif /* PPQRESULT_H */
