// One host of the load test: a service object of its own in the shared server, running a
// seeded mix of operations on a shared database and checking every answer against what it
// knows the database must hold.
//
// The database has two tables, made by the test before the hosts start:
//   fixed (id INTEGER PRIMARY KEY, name VARCHAR(40), amount DOUBLE, note VARCHAR(40)):
//     kFixedRows rows; id i has name "fixed-i", amount i * 1.5, note "note i" or NULL
//     when i is a multiple of 5
//   items (host INTEGER, seq INTEGER, label VARCHAR(40), amount DOUBLE, PRIMARY KEY (host, seq)):
//     rows the hosts insert, each only its own (host = its index)
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace zel::test {

inline constexpr int kFixedRows = 200;

// The SQL that makes both tables and fills "fixed".
std::vector<std::wstring> LoadSchemaStatements();

// What a row of "items" a host committed holds.
std::wstring ItemLabel(int host, int seq);
double ItemAmount(int seq);
// The text the server gives for a DOUBLE value.
std::wstring AmountText(double value);

struct LoadSettings {
    std::wstring connection;  // initialization string of the shared database
    int host = 0;
    int operations = 500;
    unsigned seed = 1;
};

struct LoadReport {
    int operations = 0;
    int xmlQueries = 0;
    int rowFetches = 0;
    int catalogWalks = 0;
    int transactions = 0;
    int rolledBack = 0;
    int autocommitInserts = 0;
    int busyRetries = 0;                // refusals with the provider's busy error, retried
    std::vector<int> committed;         // seq numbers in the database, ascending
    std::vector<std::wstring> errors;   // every wrong answer or unexpected failure
};

// Runs the operations; never throws.
LoadReport RunLoad(const LoadSettings& settings);

}  // namespace zel::test
