#include "crash/crash_utility.h"

int32_t CrashUtility::RecordSEH(EXCEPTION_POINTERS* /*pointers*/) {
  return EXCEPTION_CONTINUE_SEARCH;
}
