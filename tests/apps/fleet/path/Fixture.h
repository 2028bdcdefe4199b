// Fleets of a few words a line, put into a store as recorders do.
//
//    rp 10.9.9.9 r3                    of all groups; r3 has it on an interface
//    ssm 232.0.0.0/8                   of all routers
//    link /24 r1.eth1 10.0.1.1 r2.eth0 10.0.1.2
//                                      secondary addresses follow a comma; all hear each
//                                      other; the highest address is DR
//    r2 sg in eth0 via 10.0.1.1; eth1 join, eth2 member
//                                      wc, sg with its SPT bit, sg- without, rpt;
//                                      "attached" or nothing instead of a neighbour;
//                                      "unjoined", "old": an hour
//                                      of interfaces: join, pruning, member, excludes,
//                                      won, lost ADDRESS, off [REASON]
//    r1 registers | r1 stopped
//    r1 samples 100 98                 and 4.1 Mbit/s, or none
//    stale r2, incomplete r2, compared r2 (its state is of another run), gone r2, unrecorded r2, down r2.eth1, dr r2.eth1
//    deaf r2.eth1 r3                   says of no such neighbour
//    foreign r2.eth1 10.0.1.9          a neighbour that nobody records; maybe DR
//    no gen-ids
//    option r2.eth1                    its hello lacks the LAN prune delay
//    range r2 232.0.0.0/8              a source-specific range that only r2 has
//    rp-of r2 10.9.9.8                 where the others have another
//    put r2 links garbage              the value of a key of that kind
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/store/Store.h"
#include "tests/support/TempRoot.h"

namespace Fleet::Test {

constexpr int64_t now = 1'795'370'400'000;  // 2026-11-22T18:00:00Z

class Fixture {
 public:
   Fixture( const std::vector<std::string>& lines, const RouteKey& stream );
   // In a directory that is there, and stays.
   Fixture( const std::string& directory, const std::vector<std::string>& lines,
            const RouteKey& stream );

   // Writes what differs with these lines, of the same routers.
   void change( const std::vector<std::string>& lines, const RouteKey& stream );
   Reader& reader() { return *reader_; }
   const Scope& scope() const { return scope_; }
   // Every key of each router.
   std::map<std::string, std::map<std::string, std::string>>& values() {
      return values_;
   }
   void put( const std::string& router, const std::string& key,
             const std::string& value );
   void tell( const std::string& router, const Event& event );
   // The recorders live on.
   void beat();

 private:
   void fill( const std::string& directory, const std::vector<std::string>& lines,
              const RouteKey& stream );

   std::optional<Mox::Test::TempRoot> root_;
   Scope scope_;
   std::map<std::string, std::map<std::string, std::string>> values_;
   std::map<std::string, std::unique_ptr<Writer>> writers_;
   std::unique_ptr<Reader> reader_;
};

}
