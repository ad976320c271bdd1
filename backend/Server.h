#pragma once

#include "backend/Options.h"

namespace tessivox::backend {

/// The life of a server, until it is told to end or nobody needs it. Gives the exit status; throws base::Error with a
/// sentence if it cannot serve. Main thread.
int runServer(const ServerOptions& options);

}  // namespace tessivox::backend
