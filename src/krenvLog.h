// krenvLog.h - how the library's sources write log records. Each defines `kSourceFile`, its position in the records.
#pragma once

#include "Logging.h"

/// KR_LOG(Error) << "text"; a record at this line. KR_LOG(Error); alone carries only the position.
#define KR_LOG(level) KR_LOG_AT(level, __LINE__)

/// The same with a line of the caller's choice.
#define KR_LOG_AT(level, line) PM_LOG_RECORD(::nLogging::Level::level, "PMEnvironment", kSourceFile, line)
