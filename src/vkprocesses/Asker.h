#pragma once

#include "internal/Failure.h"

#include <sys/types.h>

namespace tarn::vkprocesses {

// Who is at the other end of the connection.
struct Asker
{
    uid_t mUser;    // it is told only about files of this user
    bool mIsParent; // it has started this process, and not a client of the socket of systemd
};

// A socket without a name was made by the parent, which has taken on the user that this process has. A client
// of a socket with a name counts if it is of the user whom that socket belongs to, or of root.
Result<Asker> askerOf(int pConnection);

} // namespace tarn::vkprocesses
