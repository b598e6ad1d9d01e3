// How the program failing_allocation_host ends. Any other code is that of a
// process which ended without asking the server's filter.
#pragma once

namespace kova::test {

enum FailingAllocationCode : int {
  // The server and its host went on as if nothing were.
  kCameThrough = 0,
  // An exception reached the server's filter, which is as far as it must get:
  // from there it goes on to the host.
  kReachedTheFilter = 70,
  // There are not as many calls.
  kNeverCalled = 71,
  // A client, the library or the threads are not as they must be.
  kNotAsItMust = 72,
  kNotReady = 73,
};

}  // namespace kova::test
