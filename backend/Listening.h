#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/Options.h"
#include "backend/api/Api.h"
#include "platform/linux/posix/Descriptor.h"

namespace tessivox::backend {

/// What a server starts from: its socket, its address, and what ties it to its starter.
struct Listening {
    posix::Descriptor socket;
    Identity identity;
    std::string url;                ///< with the secret
    posix::Descriptor addressFile;  ///< if it was inherited; open, it says that the server lives
    posix::Descriptor owner;        ///< if it was inherited; at its end the starter is gone

    /// What the starter left in descriptors 3, 4 and 5. Throws base::Error with a sentence.
    static Listening inherited();
    /// A socket of its own. Throws base::Error with a sentence.
    static Listening open(const ListenOptions& options);

    /// For a server that begins to end: whoever looks for one from now on does not take it for a live one, and may
    /// start another.
    void leaveAddress();
};

}  // namespace tessivox::backend
