/*
 * SPDX-FileCopyrightText: 2026 the DORVY driver developers
 * SPDX-License-Identifier: MIT
 *
 * Questions to a result that libpq answers in several calls.
 */
#include "ppq_p.h"

#include "ppqresult.h"

int ppqValue(const PGresult *result, int row, int column, const char **value)
{
    const PGresAttValue *field;

    if (row < 0 || row >= result->ntups || column < 0 || column >= result->numAttributes)
        return NULL_LEN;
    field = &result->tuples[row][column];
    if (field->len != NULL_LEN)
        *value = field->value;
    return field->len;
}

static bool ppqIsSameColumn(const PGresAttDesc *one, const PGresAttDesc *other)
{
    return one->typid == other->typid && one->typlen == other->typlen &&
           one->atttypmod == other->atttypmod && strcmp(one->name, other->name) == 0;
}

int ppqHasSameColumns(const PGresult *one, const PGresult *other)
{
    if (one->numAttributes != other->numAttributes)
        return false;
    for (int i = 0; i < one->numAttributes; i++) {
        if (!ppqIsSameColumn(&one->attDescs[i], &other->attDescs[i]))
            return false;
    }
    return true;
}
