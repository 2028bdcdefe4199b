#include "apps/store/detail/NatsRoom.h"

#include <limits>

namespace Fleet {

bool NatsRoom::take( size_t bytes ) {
   const uint64_t more = cost( bytes );
   if ( !fits( more ) && !asked_ ) ask();
   if ( !fits( more ) ) return false;
   used_ += more;
   return true;
}

void NatsRoom::ask() {
   jsStreamInfo* info = nullptr;
   jsErrCode code{};
   const natsStatus status = js_GetStreamInfo( &info, connection_.streams(),
                                               stream_.c_str(), nullptr, &code );
   checkNats( status, "asking for the stream " + stream_, code );
   const std::unique_ptr<jsStreamInfo,
                         NatsDestroy<jsStreamInfo, jsStreamInfo_Destroy>>
      owner( info );
   const int64_t most = info->Config->MaxBytes;
   // A part is kept free for what marks that a value was removed.
   limit_ = most > 0 ? static_cast<uint64_t>( most - most / 16 )
                     : std::numeric_limits<uint64_t>::max() / 2;
   used_ = info->State.Bytes + ( used_ - before_ );
   asked_ = true;
}

}
