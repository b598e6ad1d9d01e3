// The long soak, run by script/soak:
//
//   whole_soak REQUESTS MINUTES   until so many requests are answered or so
//                                 many minutes have passed; 0 minutes: no limit
//
// The rows go to standard output as they come, progress to standard error.
// Exit codes: 0 flat and every answer right, 1 not so, 2 it could not run.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "test/soak/soak.h"

namespace {

using kova::test::SoakRow;

constexpr uint32_t kClients = 8;
constexpr uint64_t kMostRequestsOfARow = 10000;
constexpr uint64_t kMsOfAMinute = 60000;

void ShowLine(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

void ShowProgress(uint64_t requests) {
  std::fprintf(stderr, "soak: %llu requests so far\n",
               static_cast<unsigned long long>(requests));
  std::fflush(stderr);
}

std::vector<SoakRow> RunRows(kova::test::Soak& soak, uint64_t requests,
                             uint64_t minutes) {
  const uint64_t endMs = ::GetTickCount64() + minutes * kMsOfAMinute;
  const uint64_t perRow =
      std::clamp<uint64_t>(requests / 10, 1, kMostRequestsOfARow);
  std::vector<SoakRow> rows;
  rows.reserve(requests / perRow + 1);
  uint64_t done = 0;
  while (done < requests && (minutes == 0 || ::GetTickCount64() < endMs)) {
    rows.push_back(
        soak.RunRound(std::min(perRow, requests - done), &ShowProgress));
    done = rows.back().requests;
    ShowLine(kova::test::SoakLine(rows.back()));
  }
  return rows;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  kova::test::Soak soak(kClients);
  if (!soak.IsReady()) {
    std::fprintf(stderr, "soak: the server or its printer cannot be set up\n");
    return 2;
  }
  ShowLine(kova::test::SoakHeading());
  const std::vector<SoakRow> rows =
      RunRows(soak, std::strtoull(arguments[1], nullptr, 10),
              std::strtoull(arguments[2], nullptr, 10));
  const kova::test::SoakVerdict verdict = kova::test::Judge(rows);
  ShowLine(kova::test::VerdictText(verdict));
  return verdict.isFlat && verdict.wrongAnswers == 0 ? 0 : 1;
}
