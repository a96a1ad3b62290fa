// Eight host processes at once, each with its own service object in the shared server and
// 500 mixed operations on one database file: queries as documents, row fetches, catalog
// walks, inserts in transactions and alone. Every answer must be right (each host checks its
// own, LoadWorker.h), the only refusal allowed is the provider's busy error, which the hosts
// retry, and in the end the file holds exactly the rows each host committed.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/reliability/LoadWorker.h"
#include "tests/reliability/ServerFixture.h"
#include "tests/server/ServerProcessSupport.h"

using namespace zel::test;

namespace {

constexpr int kHosts = 8;
constexpr int kOperations = 500;
constexpr DWORD kHostTimeout = 240000;

struct HostResult {
    std::string stats;
    std::vector<int> committed;
    std::vector<std::string> errors;
};

HostResult ParseResult(const std::string& text) {
    HostResult result;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("stats ", 0) == 0) result.stats = line.substr(6);
        if (line.rfind("error ", 0) == 0) result.errors.push_back(line.substr(6));
        if (line.rfind("committed", 0) == 0) {
            std::istringstream numbers(line.substr(9));
            int seq = 0;
            while (numbers >> seq) result.committed.push_back(seq);
        }
    }
    return result;
}

class LoadTest : public ServerFixture {};

TEST_F(LoadTest, EightHostsWithFiveHundredMixedOperationsEachGetRightAnswersAndLoseNothing) {
    for (const std::wstring& sql : LoadSchemaStatements()) ASSERT_TRUE(Client().Run(sql));
    // The hosts share one server thread: a lock wait there would hold up every other host,
    // so they ask for an immediate busy refusal and retry it themselves.
    const std::wstring connection = Database().ConnectionString(L";Busy Timeout=0");

    const DWORD start = GetTickCount();
    std::vector<std::unique_ptr<ChildProcess>> hosts;
    std::vector<std::wstring> results;
    for (int host = 1; host <= kHosts; ++host) {
        results.push_back(Database().Directory() + L"\\host" + std::to_wstring(host) + L".txt");
        hosts.push_back(std::make_unique<ChildProcess>(L"\"" + HostPath() + L"\" load \"" + connection + L"\" " +
                                                       std::to_wstring(host) + L" " + std::to_wstring(kOperations) +
                                                       L" " + std::to_wstring(1000 + host) + L" \"" + results.back() +
                                                       L"\""));
        ASSERT_TRUE(hosts.back()->started()) << "host " << host;
    }
    for (int host = 1; host <= kHosts; ++host) {
        ChildProcess& process = *hosts[static_cast<size_t>(host - 1)];
        const DWORD spent = GetTickCount() - start;
        ASSERT_TRUE(process.WaitForExit(spent < kHostTimeout ? kHostTimeout - spent : 0)) << "host " << host << " hangs";
    }
    const DWORD took = GetTickCount() - start;

    int busy = 0;
    for (int host = 1; host <= kHosts; ++host) {
        SCOPED_TRACE("host " + std::to_string(host));
        HostResult result = ParseResult(ReadText(results[static_cast<size_t>(host - 1)]));
        std::printf("host %d: %s\n", host, result.stats.c_str());
        for (const std::string& error : result.errors) ADD_FAILURE() << error;
        EXPECT_EQ(0u, hosts[static_cast<size_t>(host - 1)]->ExitCode());
        const size_t at = result.stats.find("busy=");
        if (at != std::string::npos) busy += std::atoi(result.stats.c_str() + at + 5);

        // The file holds exactly this host's committed rows, with their values (read as one
        // document: row by row would cost thousands of calls).
        Outcome outcome = Client().Execute(L"SELECT seq, label, amount FROM items WHERE host = " +
                                           std::to_wstring(host) + L" ORDER BY seq");
        ASSERT_EQ(1, outcome.result) << ToUtf8(outcome.errorText);
        const std::vector<XmlAttributes> rows = XmlElements(outcome.xml, L"Rowset");
        EXPECT_EQ(result.committed.size(), rows.size());
        for (size_t i = 0; i < rows.size() && rows.size() == result.committed.size(); ++i) {
            const int seq = result.committed[i];
            const XmlAttributes expected{
                {L"C1", std::to_wstring(seq)}, {L"C2", ItemLabel(host, seq)}, {L"C3", AmountText(ItemAmount(seq))}};
            ASSERT_EQ(expected, rows[i]) << "row " << i;
        }
    }
    EXPECT_EQ(L"0", Client().Scalar(L"SELECT COUNT(*) FROM items WHERE host NOT BETWEEN 1 AND 8"));
    EXPECT_EQ(L"ok", Client().Scalar(L"PRAGMA integrity_check"));
    std::printf("%d hosts x %d operations in %lu ms, %d busy refusals retried\n", kHosts, kOperations,
                static_cast<unsigned long>(took), busy);
}

}  // namespace
