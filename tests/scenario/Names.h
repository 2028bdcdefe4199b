// Short names for addresses and routes, in a scenario's statements and
// expectations.
#pragma once

#include <map>
#include <string>

#include "model/Fwd.h"
#include "platform/net/IpGenAddr.h"
#include "platform/pim/RouteKey.h"

namespace Scenario {

class Names {
 public:
   // By name: an address ("192.0.2.7"), or a route ("(S1,G1)", "(*,G1)") of names that
   // may come later.
   explicit Names( const std::map<std::string, std::string>& texts );

   // The address of a name or an address. Throws Mox::ParseError.
   Vantu::IpGenAddr address( const std::string& word ) const;
   // The route of a name or a text in brackets. Throws ScriptError.
   Routing::Pim::RouteKey route( const std::string& word ) const;
   bool isRoute( const std::string& word ) const;

   // The address's name if it has one.
   std::string of( const Vantu::IpGenAddr& address ) const;
   std::string of( const Routing::Pim::RouteKey& key ) const;

 private:
   const std::map<std::string, std::string>& texts_;
   std::map<Vantu::IpGenAddr, std::string> addresses_;
   std::map<Routing::Pim::RouteKey, std::string> routes_;
};

}
