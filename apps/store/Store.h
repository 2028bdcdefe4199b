// Stores: where the recorders of a fleet keep their routers' state and history, and
// where its readers find them. A Writer is one router's, a Reader reads any of them. Each
// object belongs to one thread at a time; its calls may block.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/store/Key.h"
#include "apps/store/Packed.h"
#include "platform/base/Error.h"

namespace Fleet {

constexpr uint32_t storeFormat = 1;
// A value above this is not put: servers refuse more than 1 MiB.
constexpr size_t largestValue = 900'000;

// The store cannot be reached, or has no room, at the moment: the same again later.
class StoreAway : public Mox::Error {
 public:
   using Error::Error;
};
// The store does not let us in, or refuses what we ask.
class StoreRefuses : public Mox::Error {
 public:
   using Error::Error;
};
// The store, or the router in it, has a format that this program does not know.
class StoreFormat : public Mox::Error {
 public:
   using Error::Error;
};
// There is no such store, or it holds nothing of that router.
class StoreMissing : public Mox::Error {
 public:
   using Error::Error;
};
// Another recorder holds the router; the text names its host and process.
class StoreHeld : public Mox::Error {
 public:
   using Error::Error;
};

// A line of history.
struct Event {
   // Written: its number in the recorder's run, from 1. Read: of two lines of a router the
   // later one has the greater id.
   int64_t id = 0;
   int64_t at = 0;  // ms since 1970, UTC, when the recorder saw it
   std::string vrf = {};
   uint32_t ipVersion = 0;   // 4 or 6; 0: neither
   std::string group = {};   // addresses as text; empty: of no group
   std::string source = {};  // "*" for a (*,G) route
   std::string op = {};    // "add", "update", "delete", "neighbor-gone", "log" ...
   std::string body = {};  // the whole line, JSON
};

class Writer {
 public:
   struct Put {
      std::string key;
      std::optional<std::string> value;  // nothing: the key goes
      uint64_t digest = 0;               // of what readers are to see
   };
   struct Standing {
      uint64_t digest = 0;
      Packed value;
   };

   virtual ~Writer() = default;

   // Everything that stands, by key.
   virtual std::map<std::string, Standing> standing() = 0;

   // Writes events, then state: whole, or so that the same is to be written again, until
   // it succeeds. Returns the keys that have no room, whose former values stand. Throws
   // StoreAway, StoreRefuses or StoreHeld.
   virtual std::vector<std::string> write( const std::vector<Event>& events,
                                           const std::vector<Put>& puts ) = 0;

   // Tells readers that the recorder lives and the store is its own: at least every
   // `beating`. Throws as write().
   virtual void beat() = 0;
   static constexpr double beating = 3.0;  // s

   // May the store hold something else than was written, so that standing() is to be
   // compared? Costs next to nothing.
   virtual bool doubted() { return false; }

   // Removes some of the history that is too old or too much; true if more is left to
   // do. `now`: ms since 1970.
   virtual bool prune( int64_t now ) = 0;
};

// The limits of what is kept.
struct Keeping {
   double age = 7 * 86400.0;      // of history, s
   uint64_t bytes = 1ULL << 30U;  // of history, about
   // Of servers only. They reserve the room.
   uint64_t stateBytes = 64ULL << 20U;  // of a router's state
   uint32_t replicas = 1;
};

// A question to the history of one router. Texts that are empty ask for all.
struct Past {
   int64_t since = 0;  // ms since 1970
   int64_t until = INT64_MAX;
   std::string vrf = {};
   uint32_t ipVersion = 0;
   std::string group = {};
   std::string source = {};  // also the events of "*"
   int64_t after = 0;        // lines with a greater id
};

// Tells that something may have changed. Belongs to its reader's thread; the reader
// outlives it.
class Bell {
 public:
   virtual ~Bell() = default;
   // Has it rung since it was asked last? The first answer is yes. Costs next to nothing,
   // so that it may be asked five times a second. Throws as the reader.
   virtual bool rang() = 0;
};

class Reader {
 public:
   virtual ~Reader() = default;

   // The routers of the fleet in order of name.
   virtual std::vector<std::string> routers() = 0;

   // Does a recorder keep the router's state up to date? Its last sign of life is less
   // than 15 s old.
   virtual bool lives( const std::string& router ) = 0;
   // The run of that recorder, as it was given to openWriter(); empty: none. A state that
   // another run wrote is being compared.
   virtual std::string instance( const std::string& router ) = 0;

   // Says that these values of all these routers will be asked for next, once each: a
   // store that is far away reads them at once.
   virtual void foresee( const std::vector<std::string>& routers,
                         const std::vector<std::string>& keys ) {
      (void)routers;
      (void)keys;
   }
   // Values by key; keys that the router does not have are missing.
   virtual std::map<std::string, std::string> values(
      const std::string& router, const std::vector<std::string>& keys ) = 0;
   // The values of all keys that begin so, in order of their keys.
   virtual void each(
      const std::string& router, const std::string& prefix,
      const std::function<void( const std::string& key, const std::string& value )>&
         call ) = 0;

   // The router's events in order of their times.
   virtual void history( const std::string& router, const Past& past,
                         const std::function<void( const Event& )>& call ) = 0;

   // The id of the router's last line; 0: none. A smaller one than before is of another
   // store, which took the place of the former one.
   virtual int64_t newest( const std::string& router ) = 0;

   // A bell for what concerns a group, of any router. It may ring for no reason, and
   // may miss a change when the store was away: who must not, looks now and then anyway.
   virtual std::unique_ptr<Bell> bell( const Scope& scope,
                                       const Vantu::IpGenAddr& group ) = 0;

   // Removes all that the store holds of a router. Throws StoreHeld where it has a
   // recorder.
   virtual void forget( const std::string& router ) = 0;
};

// Where a store is.
struct StoreAddress {
   std::string store =
      {};  // "sqlite:DIR", or "nats://HOST[:PORT][,HOST[:PORT]]..."
   // Of servers only. Files; empty: none.
   std::string fleet = "default";
   std::string authority =
      {};  // that signed the servers' certificates; then TLS it is
   std::string certificate = {};
   std::string key = {};          // of the certificate, readable by nobody else
   std::string credentials = {};  // likewise
};

// Opens the store. `instance`: a name of this recorder's run. Throws Mox::ParseError for
// any other text, and the exceptions above.
std::unique_ptr<Writer> openWriter( const StoreAddress& address,
                                    const std::string& router,
                                    const std::string& instance,
                                    const Keeping& keeping );
std::unique_ptr<Reader> openReader( const StoreAddress& address );

}
