// Answers without this router's own addresses and DR roles, where the agent does
// not publish them. Every role that the tables allow is tried: an answer that is
// the same for all of them is known.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "apps/mirror/Mirrors.h"

namespace Show {

// While it lives it gives the mirror's model assumed PIM interfaces, unless the
// agent publishes them. Destroyed before the mirror.
class Conceivable {
 public:
   explicit Conceivable( const Mirror& mirror );
   ~Conceivable();
   Conceivable( const Conceivable& ) = delete;
   Conceivable& operator=( const Conceivable& ) = delete;

   // Does the agent publish its interfaces?
   bool published() const { return made_ == nullptr; }

   // Calls for every role that this router may have on the interface: DR or not,
   // with or without address, an assert's winner or a loser with a lower or higher
   // address. Roles that contradict the tables are left out, unless all do. Calls
   // once if the role is known.
   void each( const Routing::Pim::SparseMode::Intf& intf,
              const std::function<void()>& call ) const;

   // The macro's answer; nothing if both are possible.
   std::optional<bool> known( const Routing::Pim::SparseMode::Intf& intf,
                              const std::function<bool()>& macro ) const;

 private:
   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Vantu::AddressFamily family_;
   Mox::Ptr<Routing::Pim::Status> made_;
};

}
