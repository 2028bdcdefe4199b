// The store in servers of NATS; NatsNames.h has what is where in them.
#pragma once

#include <optional>
#include <set>
#include <unordered_map>

#include "apps/store/detail/NatsLease.h"
#include "apps/store/detail/NatsNames.h"
#include "apps/store/detail/NatsRoom.h"

namespace Fleet {

struct NatsExact;

class NatsWriter : public Writer {
 public:
   NatsWriter( const StoreAddress& address, const std::string& router,
               const std::string& instance, const Keeping& keeping );

   std::map<std::string, Standing> standing() override;
   std::vector<std::string> write( const std::vector<Event>& events,
                                   const std::vector<Put>& puts ) override;
   void beat() override;
   bool doubted() override;
   bool prune( int64_t now ) override;

 private:
   static constexpr size_t inFlight = 2000;

   // A message to be stored, and where it was.
   struct Sending {
      std::string subject;
      std::string_view data;
      std::vector<std::pair<const char*, std::string>> headers;
      uint64_t sequence = 0;  // 0: not yet
      bool noRoom = false;
   };

   void connect();
   void requireSize() const;
   // Is there a server that lets us in, and is the router still ours?
   void requireStore();
   void writeEvents( const std::vector<Event>& events );
   void writeState( const std::vector<Put>& puts );
   bool hasRoom( const Sending& sending, bool removes );
   // Which of the events are stored, though nobody said so.
   void findStored( const std::vector<Event>& events );
   // Called with the index of each that is stored.
   using Stored = std::function<void( size_t )>;
   // Returns when all are stored or have no room; throws StoreAway.
   void send( std::vector<Sending>& all, const Stored& stored );
   void publish( const Sending& sending, size_t index );
   void take( std::vector<Sending>& all, size_t& waiting, std::string& trouble,
              const Stored& stored );
   // Throws what the trouble of a message means.
   [[noreturn]] void failed( const std::string& trouble );
   // Calls; what went wrong is thrown as failed() does.
   template <class Call>
   void insured( const Call& call );
   // Makes streams that somebody removed.
   void ensureAgain();
   void noteRemoval( const std::string& key, uint64_t sequence );
   bool purge( const std::string& key, uint64_t sequence );

   const StoreAddress address_;
   const std::string router_, instance_;
   const Keeping keeping_;
   const NatsNames names_;
   const std::string prefix_;
   std::unique_ptr<NatsConnection> connection_;
   std::unique_ptr<NatsLease> lease_;
   std::optional<NatsRoom> room_;  // of the state
   NatsSubscription foreign_;      // rings when somebody else writes
   uint64_t round_ = 0, rings_ = 0, losses_ = 0;
   bool doubted_ = false;
   double ensured_ = 0.0;  // s
   bool let_ = false;      // has the server once let us write?
   // Of the batch that is being written.
   std::set<int64_t> storedEvents_;
   std::map<std::string, uint64_t> storedKeys_;
   std::optional<int64_t> firstTry_;  // ms since 1970
   std::optional<double> troubledSince_;

   // What marks that a key was removed, until it may go as well.
   struct Removal {
      double at = 0.0;  // s
      uint64_t sequence = 0;
   };
   std::map<std::string, Removal> removals_;  // by key
};

class NatsReader : public Reader {
 public:
   explicit NatsReader( const StoreAddress& address );

   std::vector<std::string> routers() override;
   bool lives( const std::string& router ) override;
   std::string instance( const std::string& router ) override;
   void foresee( const std::vector<std::string>& routers,
                 const std::vector<std::string>& keys ) override;
   std::map<std::string, std::string> values(
      const std::string& router, const std::vector<std::string>& keys ) override;
   void each( const std::string& router, const std::string& prefix,
              const std::function<void( const std::string&, const std::string& )>&
                 call ) override;
   void history( const std::string& router, const Past& past,
                 const std::function<void( const Event& )>& call ) override;
   int64_t newest( const std::string& router ) override;
   std::unique_ptr<Bell> bell( const Scope& scope,
                               const Vantu::IpGenAddr& group ) override;
   void forget( const std::string& router ) override;

 private:
   struct Life {
      uint64_t revision = 0;  // 0: nobody records it
      double moved = 0.0;     // s, of our clock
      double looked = 0.0;
      std::string instance = {};
   };

   const NatsConnection& connection();
   // What is told of the routers' lives now, unless that is known; asked for with `more`.
   std::vector<NatsMessage> readWithLives( const std::vector<std::string>& routers,
                                           std::vector<NatsExact> more );
   const Life& lifeOf( const std::string& router );
   void requireName( const std::string& router );
   uint64_t lastOfHistory();
   std::string valueOf( const std::string& router, const std::string& key,
                        const NatsMessage& message ) const;

   const StoreAddress address_;
   const NatsNames names_;
   std::unique_ptr<NatsConnection> connection_;
   std::map<std::string, Life> lives_;
   std::vector<std::string> known_;          // routers
   std::map<std::string, uint64_t> newest_;  // by router
   std::map<std::pair<std::string, std::string>, NatsMessage> foreseen_;
   double foresaw_ = 0.0;  // s
};

}
