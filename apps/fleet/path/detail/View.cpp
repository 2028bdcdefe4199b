#include "apps/fleet/path/detail/View.h"

namespace Fleet {

namespace {

const RouteIntf* find( const std::optional<Route>& route,
                       const std::string& interface ) {
   return route ? route->entry.find( interface ) : nullptr;
}

View sharedViewOf( const Stream& stream ) {
   const Entry& entry = stream.wc->entry;
   const Entry& path =
      stream.sg && stream.sg->rpt && !stream.sg->rpt->incoming.empty()
         ? *stream.sg->rpt
         : entry;
   return { Tree::shared, path.incoming, path.neighbor, false,
            entry.joined, entry.created, entry.rp };
}

bool onSourceTree( const Stream& stream ) {
   if ( !stream.sg ) return false;
   const Entry& entry = stream.sg->entry;
   return entry.spt || entry.attached || entry.sourceSpecific || !stream.wc;
}

}

View sourceViewOf( const Stream& stream ) {
   if ( !stream.sg ) return {};
   const Entry& entry = stream.sg->entry;
   View view{ Tree::source,
              entry.incoming,
              entry.neighbor,
              entry.attached,
              entry.joined,
              entry.created,
              {} };
   if ( !entry.spt && !entry.rpfInterface.empty() ) {
      view.incoming = entry.rpfInterface;
      view.neighbor = entry.rpfNeighbor;
   }
   return view;
}

View viewOf( const Stream& stream ) {
   if ( onSourceTree( stream ) ) return sourceViewOf( stream );
   return stream.wc ? sharedViewOf( stream ) : View();
}

const std::vector<RouteIntf>& interfacesOf( const Stream& stream ) {
   static const std::vector<RouteIntf> none;
   if ( stream.sg ) return stream.sg->entry.interfaces;
   return stream.wc ? stream.wc->entry.interfaces : none;
}

const RouteIntf* recordOf( const Stream& stream, const std::string& interface ) {
   const RouteIntf* own = find( stream.sg, interface );
   if ( own != nullptr || stream.sg ) return own;
   return find( stream.wc, interface );
}

bool memberOn( const Stream& stream, const std::string& interface ) {
   const RouteIntf* own = find( stream.sg, interface );
   const RouteIntf* shared = find( stream.wc, interface );
   if ( own != nullptr && own->member ) return true;
   return shared != nullptr && shared->member &&
          ( own == nullptr || !own->excludes );
}

Above aboveOf( const Stream& stream, Tree followed, const std::string& interface ) {
   const auto& joining = followed == Tree::source ? stream.sg : stream.wc;
   Above above;
   above.route = joining.has_value();
   if ( !above.route ) return above;
   above.incoming = viewOf( stream ).incoming == interface;
   above.member = memberOn( stream, interface );
   const RouteIntf* join = find( joining, interface );
   above.joined = join != nullptr && join->joined;
   above.pruning = join != nullptr && join->pruning;
   const RouteIntf* record = recordOf( stream, interface );
   if ( record == nullptr ) return above;
   above.stands = true;
   above.forwards = record->forwards;
   above.assertState = record->assertState;
   above.winner = record->assertWinner;
   above.reason = record->reason;
   if ( record->reason == Reason::incomingInterface ) above.incoming = true;
   return above;
}

}
