#pragma once

// A Print Job SOP instance (PS3.4 H.4.5): the job a printer makes when a film session or a
// film box is printed. It holds nothing yet; it is the place for the job's status (N-GET of
// the job, its N-EVENT-REPORTs) when the library comes to follow jobs.

#include "kestrel/Export.h"

class KESTREL_API CPrintJob {
 public:
  CPrintJob();
  virtual ~CPrintJob();
  CPrintJob(const CPrintJob& other);
  CPrintJob& operator=(const CPrintJob& other);
};
