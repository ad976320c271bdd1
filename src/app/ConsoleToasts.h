#pragma once

#include <memory>

#include "app/Console.h"
#include "detection/ports/ToastPresenter.h"

namespace tessivox::app {

/// Where nothing can be shown, a toast is a line with the command that gives the answer; nobody can press its buttons.
class ConsoleToasts final : public detection::ToastPresenter {
public:
    explicit ConsoleToasts(Console& console) : console_(console) {}

    std::unique_ptr<detection::Toast> show(detection::ToastContents contents) override;

private:
    Console& console_;
};

}  // namespace tessivox::app
