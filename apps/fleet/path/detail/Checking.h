// A check in progress: the joins of all routers, each with its two ends kept apart until
// all have been read.
#pragma once

#include <set>
#include <unordered_map>

#include "apps/fleet/path/Check.h"
#include "apps/fleet/path/detail/Judge.h"

namespace Fleet {

class Checking {
 public:
   struct Found {
      Judgement judgement = {};
      uint32_t router = 0;
      std::optional<uint32_t> interface = {};
      std::optional<Place> other = {};
      std::optional<RouteKey> stream = {};
      size_t streams = 0;
      std::set<uint32_t> routers = {};  // of all that it rests on
      bool ofLink = false;              // the stream is but an example
   };
   // Streams by router: what is to be read.
   using Chosen = std::map<uint32_t, std::set<RouteKey>>;

   // The references outlive this.
   Checking( Reader& reader, const Routers& routers,
             const CheckQuestion& question );

   // Null: everything.
   std::vector<Found> run( const Chosen* chosen );

 private:
   struct Up {
      uint32_t stream;
      Place below, above;
      uint32_t hop;
      bool joined, old;
   };
   struct Down {
      uint32_t stream;
      Place place;
      Above above;
   };
   static_assert( sizeof( Up ) + sizeof( Down ) <= 72 );
   // A router's RPF neighbour on an interface; many routes have the same.
   struct Next {
      Hop hop;
      Judgement judgement;
      bool found = false;
      size_t streams = 0;
      RouteKey first = {};
   };

   void links();
   void link( const Place& place, const std::vector<Place>& all );
   void hearing( const Place& place );
   void hellos( const std::vector<Place>& all );
   void ranges( uint32_t a, uint32_t b, bool sourceSpecific );
   void routes( uint32_t router, const Chosen* chosen );
   void take( uint32_t router, const RouteKey& key, const std::string& value );
   void takeUp( uint32_t router, const RouteKey& key, const View& view );
   void takeDown( uint32_t router, uint32_t stream, const Stream& held,
                  const View& view );
   uint32_t next( const Place& place, const IpGenAddr& neighbor,
                  const RouteKey& key );
   void judgeUps();
   void judgeUp( const Up& up );
   void judgeSurplus();
   void judgeAsserts();
   void judgeLoops();
   void circle( const std::vector<const Up*>& members );
   const Down* down( uint32_t stream, const Place& place ) const;
   const Down* routeAt( uint32_t stream, uint32_t router ) const;
   bool allKnown( const Place& place ) const;
   bool stale( uint32_t router ) const { return fabric_.routers()[router].stale(); }
   uint32_t numberOf( const RouteKey& key );
   Found& add( const Judgement& judgement, const Place& place,
               const std::optional<Place>& other );

   Reader& reader_;
   const Routers& routers_;
   const Fabric& fabric_;
   const CheckQuestion& question_;
   const Judge judge_;
   std::vector<RouteKey> streams_;
   std::unordered_map<RouteKey, uint32_t> number_;
   std::vector<Up> ups_;
   std::vector<Down> downs_;
   std::vector<Next> nexts_;
   std::map<std::pair<Place, IpGenAddr>, uint32_t> nextOf_;
   std::vector<Found> found_;
};

}
