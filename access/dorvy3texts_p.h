// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// The Russian texts of the driver's errors, each written once.
#ifndef DORVY3TEXTS_P_H
#define DORVY3TEXTS_P_H

#include <QtCore/QString>

namespace Dorvy3Texts {

// Why the driver itself refuses an operation.
inline QString noConnection()
{
    return QStringLiteral("Отсутствует соединение с СУБД");
}
inline QString notPrepared()
{
    return QStringLiteral("Запрос не подготовлен");
}
inline QString beginForbidden()
{
    return QStringLiteral("Текущее состояние соединения запрещает начало транзакции");
}
inline QString commitForbidden()
{
    return QStringLiteral("Текущее состояние соединения запрещает завершение транзакции");
}
inline QString queryTooLarge()
{
    return QStringLiteral("Текст запроса слишком велик");
}
inline QString parametersTooLarge()
{
    return QStringLiteral("Параметры запроса слишком велики");
}
inline QString noMemory()
{
    return QStringLiteral("Недостаточно памяти");
}

// Operations that the driver refuses.
inline QString cannotBegin()
{
    return QStringLiteral("Невозможно начать транзакцию");
}
inline QString cannotCommit()
{
    return QStringLiteral("Невозможно завершить транзакцию");
}
inline QString cannotRollback()
{
    return QStringLiteral("Невозможно отменить транзакцию");
}
inline QString cannotPrepare()
{
    return QStringLiteral("Невозможно подготовить запрос");
}
inline QString cannotExecute()
{
    return QStringLiteral("Невозможно выполнить запрос");
}
inline QString cannotExecutePrepared()
{
    return QStringLiteral("Невозможно выполнить подготовленный запрос");
}

// Operations that the server has failed.
inline QString connectFailed()
{
    return QStringLiteral("Ошибка при установке соединения с СУБД");
}
inline QString beginFailed()
{
    return QStringLiteral("Ошибка при попытке начать транзакцию");
}
inline QString commitFailed()
{
    return QStringLiteral("Ошибка при попытке завершить транзакцию");
}
inline QString rollbackFailed()
{
    return QStringLiteral("Ошибка при попытке отменить транзакцию");
}
inline QString prepareFailed()
{
    return QStringLiteral("Ошибка при подготовке запроса к СУБД");
}
inline QString executeFailed()
{
    return QStringLiteral("Ошибка при выполнении запроса к СУБД");
}

} // namespace Dorvy3Texts

#endif // DORVY3TEXTS_P_H
