// How the packets of a stream come to a router, by its own entries, and what it does with
// them on an interface.
#pragma once

#include "apps/fleet/path/detail/Routers.h"

namespace Fleet {

using Tree = PathAnswer::Node::Tree;

struct View {
   Tree tree = Tree::none;
   std::string incoming = {};
   IpGenAddr neighbor = {};
   bool attached = false;
   bool joined = false;
   Time created = 0;
   IpGenAddr rp = {};
};

// The tree that brings them: the source's own where its SPT bit is set or the source is
// attached, else the shared one.
View viewOf( const Stream& stream );
// The source's own tree, which the router may be switching to. Nothing without (S,G).
View sourceViewOf( const Stream& stream );

inline std::string text( const IpGenAddr& address ) {
   return Vantu::valueToStrep( address );
}

// An interface as the upper end of an edge.
struct Above {
   bool route = false;   // one that the lower router's could follow
   bool stands = false;  // it has a record of the interface
   bool joined = false;
   bool pruning = false;
   bool member = false;
   bool forwards = false;
   bool incoming = false;  // packets come in there themselves
   bool young = false;     // its route: a join may have been for a former one
   RouteIntf::Assert assertState = RouteIntf::noInfo;
   Reason reason = Reason::none;
   IpGenAddr winner = {};
};
// For a lower router that follows such a tree.
Above aboveOf( const Stream& stream, Tree followed, const std::string& interface );

// The record that forwards the packets there, or not; null: none.
const RouteIntf* recordOf( const Stream& stream, const std::string& interface );
// Do hosts on the interface want the packets?
bool memberOn( const Stream& stream, const std::string& interface );
// The interfaces of the entry that forwards.
const std::vector<RouteIntf>& interfacesOf( const Stream& stream );

}
