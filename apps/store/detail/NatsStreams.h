// The streams of a fleet: made where they are missing.
#pragma once

#include "apps/store/detail/Nats.h"
#include "apps/store/detail/NatsNames.h"

namespace Fleet {

// So long a sign of life lasts, s.
constexpr int64_t lifetime = 15;
// So long the servers know a line of history again that is sent twice, s.
constexpr int64_t repeatable = 120;

// The streams that a recorder of the router needs; true if the one of its state was
// missing. What stands is left as it is. Throws as checkNats(); StoreRefuses if a stream
// of the name is no store of ours, or if the servers have too little room for it.
bool ensureStreams( const NatsConnection& connection, const NatsNames& names,
                    const std::string& router, const Keeping& keeping );

}
