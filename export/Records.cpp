#include "export/Records.h"

#include <sstream>

namespace Routing::Pim::SparseMode::Brane {

namespace {

// Prints the same under every global locale.
struct BraneStream : std::ostringstream {
   BraneStream() {
      imbue( std::locale::classic() );
      *this << std::boolalpha;
   }
};

}

// Deliberately without routeFlags, creationTime, rpfFrr and rpfFrrAttached.
Mox::String Route::braneString() const {
   BraneStream out;
   out << '[' << key << ']' << ", RPF: " << rpf << ", Previous RPF: " << prevRpf
       << ", RPF attached: " << rpfAttached << ", MBR iif: " << mbrIif
       << ", IIF switch state: " << iifSwitchState
       << ", IIF switch pending: " << iifSwitchPending
       << ", UpJoin State: " << upJoinState << ", UpRpt State: " << upRptState;
   return out.str();
}

// Deliberately without fastForward, the two times and lastAssertAction.
Mox::String Intf::braneString() const {
   BraneStream out;
   out << '[' << key << ']' << ", Deleted: " << toBeDeleted
       << ", Forward: " << forward << ", AllowRpInUse: " << allowRpInUse
       << ", JoinState: " << joinState << ", RptState: " << rptState
       << ", AssertState: " << assertInfo.assertState << ", AssertMetric: ";
   if ( !assertInfo.assertWinnerMetric ) {
      out << "infinite";
   } else {
      out << assertInfo.assertWinnerMetric;
   }
   out << ", Include: " << localReceiverInclude
       << ", Exclude: " << localReceiverExclude;
   return out.str();
}

Mox::String RouteCounter::braneString() const {
   BraneStream out;
   out << '[' << key << ']' << ", Count: " << count;
   return out.str();
}

}
