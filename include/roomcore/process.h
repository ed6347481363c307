// How another process ended.
#pragma once

#include "roomcore_export.h"

enum TerminationStatus {
  TerminationNormal = 0,        // exit code 0, or the exit code can't be had
  TerminationAbnormal = 1,      // ended with 259, the code that means still running
  TerminationKilled = 2,        // ended from outside
  TerminationCrashed = 3,       // any other exit code
  TerminationStillRunning = 4,  // still running
};

// `exit_code` may be null.
ROOMCORE_API TerminationStatus GetTerminationStatus(void* process_handle, int* exit_code);
