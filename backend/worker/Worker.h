#pragma once

namespace tessivox::backend {

/// The life of a worker process: one job from standard input to standard output. Gives the exit status.
int runWorker();

}  // namespace tessivox::backend
