// Sinks of traces, for traceSinkIs().
#pragma once

#include <cstdio>

#include "platform/trace/Trace.h"

namespace Mox {

// Writes each trace as a line "<seconds, CLOCK_MONOTONIC> <facility> <level>
// <text>", without fields. `file` outlives the sink.
PIMSM_API TraceSink textSink( std::FILE* file = stderr );

inline constexpr const char* journalSocket = "/run/systemd/journal/socket";

// Writes each trace as an entry of systemd's journal: MESSAGE, PRIORITY (warning
// for level 0, info to level 3, debug above), TRACE_FACILITY, TRACE_LEVEL and the
// fields. Never waits: an entry that the journal does not take becomes a line on
// standard error.
PIMSM_API TraceSink journalSink( const String& socket = journalSocket );

// True when standard error leads to the journal, as in a systemd service. Then
// journalSink() writes the same text with fields to search by.
PIMSM_API bool journalHasStandardError();

}
