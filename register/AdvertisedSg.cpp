#include "register/AdvertisedSg.h"

#include <tuple>

namespace Routing::Pim::SparseMode {

bool AdvertisedSg::operator<( const AdvertisedSg& other ) const {
   return std::tie( key, rp, anycastDiscovered ) <
          std::tie( other.key, other.rp, other.anycastDiscovered );
}

size_t AdvertisedSg::hash() const {
   return key.source.hash() ^ key.group.hash() ^ rp.hash() ^
          size_t( anycastDiscovered );
}

}
