// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// libpqxx: a cursor stream for walks, prepared statements for the rest; values go as texts.
#include "bench/clients/run.h"

#include <pqxx/pqxx>

#include <array>
#include <cstdlib>
#include <exception>
#include <string>

namespace {

constexpr int HexDigitsOfUuid = 8;
constexpr int TimeInTimestamp = 11; // behind "2020-01-01 "
constexpr int64_t MsecPerDay = 86400000;
constexpr int64_t DaysTo2000 = 730425; // from the 1 March of the year 0

int hlpNumber(const char *digits, int count)
{
    int value = 0;
    for (int i = 0; i < count; ++i) {
        value = value * 10 + digits[i] - '0';
    }
    return value;
}

// libpqxx 6 has no types for dates and times: they are read out of their text.
int64_t hlpMsecOfDay(const char *time)
{
    const int minutes = hlpNumber(time, 2) * 60 + hlpNumber(time + 3, 2);
    return (minutes * INT64_C(60) + hlpNumber(time + 6, 2)) * 1000;
}

// Days since 2000: years begin with March, so that the day of the leap year is their last.
int64_t hlpDays(const char *date)
{
    const int month = hlpNumber(date + 5, 2);
    const int year = hlpNumber(date, 4) - (month <= 2 ? 1 : 0);
    const int monthOfYear = (month + 9) % 12;
    const int dayOfYear = (153 * monthOfYear + 2) / 5 + hlpNumber(date + 8, 2) - 1;
    return INT64_C(365) * year + year / 4 - year / 100 + year / 400 + dayOfYear - DaysTo2000;
}

int64_t hlpMsecSince2000(const char *timestamp)
{
    return hlpDays(timestamp) * MsecPerDay + hlpMsecOfDay(timestamp + TimeInTimestamp);
}

int64_t hlpBytes(const pqxx::field &field)
{
    const pqxx::binarystring bytes(field);
    return static_cast<int64_t>(bytes.size()) + bytes.front() + bytes.back();
}

int64_t hlpText(const std::string &text)
{
    return static_cast<int64_t>(text.size()) + text.front() + text.back();
}

int64_t hlpUuid(const std::string &uuid)
{
    return std::strtoll(uuid.substr(0, HexDigitsOfUuid).c_str(), nullptr, 16);
}

int64_t hlpValue(char kind, const pqxx::field &field)
{
    switch (kind) {
    case 'b':
        return field.as<bool>() ? 2 : 1;
    case 'y':
        return hlpBytes(field);
    case 'i':
    case 'n':
        return field.as<long long>();
    case 'f':
        return static_cast<int64_t>(field.as<double>() * 4);
    case 't':
        return hlpText(field.as<std::string>());
    case 'd':
        return hlpDays(field.c_str());
    case 'm':
        return hlpMsecOfDay(field.c_str());
    case 's':
    case 'z':
        return hlpMsecSince2000(field.c_str());
    case 'u':
        return hlpUuid(field.as<std::string>());
    case 'j':
        return static_cast<int64_t>(field.as<std::string>().size());
    default:
        benchFail("kinds", "unknown letter");
    }
}

void hlpAdd(const BenchRun &run, const pqxx::result &rows, BenchWork *work)
{
    for (const pqxx::row &row : rows) {
        for (int column = 0; run.kinds[column]; ++column) {
            const pqxx::field field = row[column];
            work->checksum += static_cast<uint64_t>(
                field.is_null() ? int64_t(BenchNull) : hlpValue(run.kinds[column], field));
        }
    }
}

std::string hlpConninfo(const BenchRun &run)
{
    return std::string("host=") + run.host + " port=" + run.port + " user=" + run.user +
           " dbname=" + run.database;
}

BenchWork hlpWalk(const BenchRun &run, int /*thread*/)
{
    BenchWork work = {0, 0};
    pqxx::connection connection(hlpConninfo(run));
    benchStart();
    pqxx::work transaction(connection);
    pqxx::icursorstream stream(transaction, run.sql, "c", std::stol(run.pageRows));
    for (pqxx::result page; stream >> page;) {
        hlpAdd(run, page, &work);
        work.operations += page.size();
    }
    transaction.commit();
    benchStop();
    return work;
}

BenchWork hlpPoint(const BenchRun &run, int thread)
{
    BenchWork work = {0, 0};
    pqxx::connection connection(hlpConninfo(run));
    pqxx::work transaction(connection);
    connection.prepare("s", run.sql);
    connection.prepare_now("s");
    benchStart();
    const uint64_t end = benchFirst(&run, thread + 1);
    for (uint64_t i = benchFirst(&run, thread); i < end; ++i, ++work.operations) {
        hlpAdd(run, transaction.exec_prepared("s", benchKey(&run, i)), &work);
    }
    benchStop();
    return work;
}

// A text and a timestamp as text.
struct InsertValue
{
    std::string text;
    std::string at;
};

std::array<InsertValue, BenchInsertValues> hlpInsertValues()
{
    std::array<InsertValue, BenchInsertValues> values;
    for (int i = 0; i < BenchInsertValues; ++i) {
        std::array<char, BenchTextBytes> text = {};
        benchInsertText(i, text.data());
        values.at(i).text = text.data();
        snprintf(text.data(), text.size(), "2020-01-01 00:%02d:%02d", i / 60, i % 60);
        values.at(i).at = text.data();
    }
    return values;
}

BenchWork hlpInsert(const BenchRun &run, int /*thread*/)
{
    const std::array<InsertValue, BenchInsertValues> values = hlpInsertValues();
    pqxx::connection connection(hlpConninfo(run));
    benchStart();
    pqxx::work transaction(connection);
    connection.prepare("s", run.sql);
    for (uint64_t i = 0; i < run.count; ++i) {
        const InsertValue &value = values[i % values.size()];
        transaction.exec_prepared("s", i, static_cast<double>(i) * 0.25, value.text, value.at);
    }
    transaction.commit();
    benchStop();
    return {run.count, 0};
}

BenchWork hlpTexts(const BenchRun &run, int /*thread*/)
{
    BenchWork work = {0, 0};
    pqxx::connection connection(hlpConninfo(run));
    pqxx::work transaction(connection);
    benchStart();
    for (; work.operations < run.count; ++work.operations) {
        std::array<char, BenchTextBytes> text = {};
        benchNumberedText(&run, work.operations, text.data());
        connection.prepare("s", text.data());
        hlpAdd(run, transaction.exec_prepared("s"), &work);
        connection.unprepare("s");
    }
    benchStop();
    return work;
}

// No exception passes through the C code that calls.
template<BenchWork (*worker)(const BenchRun &, int)>
BenchWork hlpGuarded(const BenchRun *run, int thread)
{
    try {
        return worker(*run, thread);
    } catch (const std::exception &error) {
        benchFail("libpqxx", error.what());
    }
}

} // namespace

int main(int argc, char **argv)
{
    const std::array<BenchOperation, 5> operations = {{{"walk", hlpGuarded<hlpWalk>},
                                                       {"point", hlpGuarded<hlpPoint>},
                                                       {"insert", hlpGuarded<hlpInsert>},
                                                       {"texts", hlpGuarded<hlpTexts>},
                                                       {nullptr, nullptr}}};
    return benchMain(argc, argv, operations.data());
}
