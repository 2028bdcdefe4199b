// Answers without knowing this router's own addresses and DR roles, where the agent does
// not publish them: every role that the tables allow is tried. An answer that is the same
// for all of them is known.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "apps/mirror/Mirrors.h"

namespace Show {

// While it lives the mirror's model has PIM interfaces of its making, unless the agent
// publishes them. Goes before the mirror.
class Conceivable {
 public:
   explicit Conceivable( const Mirror& mirror );
   ~Conceivable();
   Conceivable( const Conceivable& ) = delete;
   Conceivable& operator=( const Conceivable& ) = delete;

   // Does the agent publish its interfaces?
   bool published() const { return made_ == nullptr; }

   // Calls for everything that this router may be on the interface: DR or not, with or
   // without address, the winner of an assert or another, of a lower address or a
   // higher. Who won, or lost, by the tables is taken for that. Once where it is known.
   void each( const Routing::Pim::SparseMode::Intf& intf,
              const std::function<void()>& call ) const;

   // The macro's answer; nothing where it might be either.
   std::optional<bool> known( const Routing::Pim::SparseMode::Intf& intf,
                              const std::function<bool()>& macro ) const;

 private:
   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Vantu::AddressFamily family_;
   Mox::Ptr<Routing::Pim::Status> made_;
};

}
