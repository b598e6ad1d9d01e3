// Unit: sending a response piece by piece.
#include "net/send_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kova::SendRemaining;
using testing::ElementsAre;
using testing::IsEmpty;

// A socket that takes what its script says, then everything.
struct Script {
  struct Step {
    bool succeeds;
    uint32_t accepted;
  };
  std::vector<Step> steps;
  std::vector<uint32_t> pieces;
  std::string taken;

  auto Send() {
    return [this](const char* piece, uint32_t bytes, uint32_t& accepted) {
      const size_t call = pieces.size();
      pieces.push_back(bytes);
      const Step step = call < steps.size() ? steps[call] : Step{true, bytes};
      if (!step.succeeds) return false;
      taken.append(piece, step.accepted);
      accepted = step.accepted;
      return true;
    };
  }
};

std::string Pattern(size_t bytes) {
  std::string text(bytes, '\0');
  for (size_t i = 0; i < bytes; ++i) text[i] = static_cast<char>(i * 31 >> 3);
  return text;
}

struct Sizes {
  uint32_t length;
  std::vector<uint32_t> pieces;
};

class SendPieces : public testing::TestWithParam<Sizes> {};

TEST_P(SendPieces, HoldAtMostTwoHundredThousandBytes) {
  const std::string bytes = Pattern(GetParam().length);
  Script script;
  uint32_t sent = 0;
  EXPECT_TRUE(
      SendRemaining(bytes.data(), GetParam().length, sent, script.Send()));
  EXPECT_EQ(script.pieces, GetParam().pieces);
  EXPECT_EQ(sent, GetParam().length);
  EXPECT_TRUE(script.taken == bytes);
}

INSTANTIATE_TEST_SUITE_P(Boundaries, SendPieces,
                         testing::Values(Sizes{0, {}}, Sizes{1, {1}},
                                         Sizes{199999, {199999}},
                                         Sizes{200000, {200000}},
                                         Sizes{200001, {200000, 1}},
                                         Sizes{400000, {200000, 200000}},
                                         Sizes{400001, {200000, 200000, 1}}));

TEST(SendRemaining, GoesOnAfterWhatWasSentBefore) {
  const std::string bytes = "0123456789";
  Script script;
  uint32_t sent = 7;
  EXPECT_TRUE(SendRemaining(bytes.data(), 10, sent, script.Send()));
  EXPECT_THAT(script.pieces, ElementsAre(3u));
  EXPECT_EQ(script.taken, "789");
}

TEST(SendRemaining, CallsNothingWhenAllIsSent) {
  Script script;
  uint32_t sent = 10;
  EXPECT_TRUE(SendRemaining("0123456789", 10, sent, script.Send()));
  EXPECT_THAT(script.pieces, IsEmpty());
  EXPECT_EQ(sent, 10u);
}

TEST(SendRemaining, SendsTheRestOfAPartialPiece) {
  const std::string bytes = Pattern(200005);
  Script script{{{true, 3}, {true, 199999}}, {}, {}};
  uint32_t sent = 0;
  EXPECT_TRUE(SendRemaining(bytes.data(), 200005, sent, script.Send()));
  EXPECT_THAT(script.pieces, ElementsAre(200000u, 200000u, 3u));
  EXPECT_TRUE(script.taken == bytes);
}

TEST(SendRemaining, StopsAtAFailureAndCanBeResumed) {
  const std::string bytes = Pattern(500000);
  Script script{{{true, 200000}, {true, 100}, {false, 0}}, {}, {}};
  uint32_t sent = 0;
  EXPECT_FALSE(SendRemaining(bytes.data(), 500000, sent, script.Send()));
  EXPECT_EQ(sent, 200100u);
  EXPECT_EQ(script.pieces.size(), 3u);
  EXPECT_TRUE(SendRemaining(bytes.data(), 500000, sent, script.Send()));
  EXPECT_EQ(sent, 500000u);
  EXPECT_TRUE(script.taken == bytes);
}

TEST(SendRemaining, SendsEmbeddedZeros) {
  const std::string bytes("a\0b\0", 4);
  Script script;
  uint32_t sent = 0;
  EXPECT_TRUE(SendRemaining(bytes.data(), 4, sent, script.Send()));
  EXPECT_EQ(script.taken, bytes);
}

}  // namespace
