// Sinks of traces, for traceSinkIs().
#pragma once

#include <cstdio>

#include "platform/trace/Trace.h"

namespace Mox {

// A line each: "<seconds, CLOCK_MONOTONIC> <facility> <level> <text>", without fields.
// `file` outlives the sink.
PIMSM_API TraceSink textSink( std::FILE* file = stderr );

inline constexpr const char* journalSocket = "/run/systemd/journal/socket";

// An entry of systemd's journal each: MESSAGE, PRIORITY (warning for level 0, info to
// level 3, debug), TRACE_FACILITY, TRACE_LEVEL and the fields. Never waits: an entry that
// the journal does not take is a line on standard error.
PIMSM_API TraceSink journalSink( const String& socket = journalSocket );

// Does standard error lead to the journal, as in a service of systemd's? Then
// journalSink() says the same with more to search by.
PIMSM_API bool journalHasStandardError();

}
