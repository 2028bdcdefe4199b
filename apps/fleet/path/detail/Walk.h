// One search for a path: from receivers upwards to a root. Made anew after values have
// been read once more.
#pragma once

#include <map>

#include "apps/fleet/path/detail/Judge.h"

namespace Fleet {

class Walk {
 public:
   // The references outlive this.
   Walk( Routers& routers, const PathQuestion& question );

   // Once.
   PathAnswer answer();

   // The routers of what failed.
   const std::set<uint32_t>& suspects() const { return suspects_; }

 private:
   using Kind = PathAnswer::Root::Kind;
   // What is wrong, by how sure it is: state that may be old proves nothing.
   enum Weight : uint8_t { unsure, doubtful, broken };
   // A router, looked at as it takes the stream from one tree. Its index is that of the
   // answer's node.
   struct Stop {
      uint32_t router = 0;
      View view = {};
      std::optional<size_t> up = {};  // the stop above
      bool walked = false;
   };
   struct Fault {
      Judgement judgement = {};
      Weight weight = broken;
      std::optional<size_t> stop = {};
   };

   bool wildcard() const { return question_.stream.source.isUnspecified(); }
   const Stream& stream( const Place& place ) {
      return routers_.stream( place.router );
   }
   const std::string& nameOf( const Place& place ) const {
      return fabric_.interface( place ).name;
   }

   // Upwards.
   size_t stop( uint32_t router, Tree followed );
   void climb( size_t leaf );
   std::optional<size_t> step( size_t at );
   std::optional<size_t> hop( size_t at, const View& view );
   bool ended( size_t at, const View& view, Hop& hop );
   std::optional<size_t> atRp( size_t at );
   bool registered( size_t at, const std::vector<Place>& firstHops );
   Judgement unregistered( size_t at, const std::vector<Place>& firstHops );
   void root( size_t at, Kind kind, const std::string& interface,
              const Judgement& judgement = {} );
   Judgement unresolved( size_t at, const View& view ) const;
   bool takenOver( Hop& hop );
   Judgement entries( const Hop& hop, const View& view );
   Judgement elsewhere( const Hop& hop );
   Judgement countersStill( uint32_t above, uint32_t below );
   Judgement rpDiffers( uint32_t above, uint32_t below, const IpGenAddr& rp ) const;
   IpGenAddr rpOf( uint32_t router, const View& view ) const;
   bool onNetwork( const Place& place, const IpGenAddr& host ) const;
   PathAnswer::Edge edge( size_t above, size_t below );

   // Downwards.
   void towards( const IpGenAddr& receiver );
   void wholeTree();
   void ends();
   bool forwards( const Place& place );
   bool quiet( uint32_t router );
   void deliver( const std::vector<Place>& link );
   Place deliverer( const std::vector<Place>& link, Judgement& judgement );
   Place responsible( const std::vector<Place>& link );
   Judgement undelivered( const std::vector<Place>& link, const Place& place );
   Judgement surplus( const Place& place );
   Judgement bothForward( const std::vector<Place>& link );

   // The answer.
   void fault( const Judgement& judgement, std::optional<size_t> stop,
               const std::set<uint32_t>& routers );
   void cut();
   void keep( const std::vector<bool>& kept );
   void fillNode( size_t at );
   void conclude();
   std::string flows() const;

   Routers& routers_;
   const Fabric& fabric_;
   const PathQuestion& question_;
   Judge judge_;
   std::vector<Stop> stops_;
   std::map<std::pair<uint32_t, Tree>, size_t> stopOf_;
   std::set<Place> feeding_;    // the upper ends of edges
   std::set<Place> delivered_;  // links with members
   std::vector<Fault> faults_;
   std::set<uint32_t> suspects_;
   PathAnswer answer_;
};

}
