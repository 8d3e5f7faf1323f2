#include "kestrel/CPrintJob.h"

CPrintJob::CPrintJob() = default;
CPrintJob::~CPrintJob() = default;
CPrintJob::CPrintJob(const CPrintJob&) = default;
CPrintJob& CPrintJob::operator=(const CPrintJob&) = default;
