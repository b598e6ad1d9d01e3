// The steps of a check, in their order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kova::ctl::check {

struct StepInfo {
  const char* name;   // for machines, never changed once released
  const char* title;  // at most 40 characters
};

// A step's number is its place in the list; both processes use it.
inline constexpr StepInfo kSteps[] = {
    {"load", "loading the library"},
    {"exports", "the seven exports"},
    {"versions", "the versions it speaks"},
    {"restart-routine", "taking the restart routine"},
    {"initialize", "initialising"},
    {"small", "a small GET"},
    {"bare", "a GET without headers"},
    {"head", "a HEAD"},
    {"form", "a posted form"},
    {"binary", "posted bytes, zeros among them"},
    {"large", "a body of 1 MiB"},
    {"long-target", "a target of 16 KiB"},
    {"bodiless", "headers whose body has not arrived"},
    {"keep-open", "three requests on one connection"},
    {"malformed", "requests that are only half right"},
    {"measured-twice", "a length that is asked for twice"},
    {"bare-address", "a client address at the end of memory"},
    {"own", "the request of --request"},
    {"interleave", "two requests, their calls in any order"},
    {"threads", "many threads at once"},
    {"memory", "what many requests leave behind"},
    {"unfetched", "what unfetched responses leave behind"},
    {"connections", "what connections leave behind"},
    {"idle", "what runs while nobody asks"},
    {"end", "the end of the process"},
};
inline constexpr size_t kStepCount = sizeof(kSteps) / sizeof(kSteps[0]);

// Steps before this one load the library; they are done in every worker.
inline constexpr size_t kFirstRequestStep = 5;
inline constexpr size_t kEndStep = kStepCount - 1;
// A set of steps: bit i stands for step i.
using StepSet = uint64_t;
static_assert(kStepCount <= 64);
constexpr StepSet StepBit(size_t step) { return StepSet{1} << step; }
// The step called `name`; kStepCount if there is none.
constexpr size_t StepCalled(std::string_view name) {
  size_t step = 0;
  while (step < kStepCount && kSteps[step].name != name) ++step;
  return step;
}

// Left out unless the user gives a request.
inline constexpr size_t kOwnStep = StepCalled("own");

}  // namespace kova::ctl::check
