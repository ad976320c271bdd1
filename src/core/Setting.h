#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "base/Observable.h"
#include "base/ports/Preferences.h"

namespace tessivox::core {

/// How a setting's type is stored. The general case is a type that the store itself knows.
template <typename T>
struct SettingType {
    static std::optional<T> fromStored(const base::PreferenceValue& value) {
        const T* found = std::get_if<T>(&value);
        return found ? std::optional(*found) : std::nullopt;
    }
    static base::PreferenceValue toStored(T value) { return value; }
};

/// One preference, bound to its key in a store. An absent value, or one of another type, reads as the default. Main
/// thread.
template <typename T>
class Setting {
public:
    /// `onSet` is called after set() has changed the value; not when the store is changed from elsewhere.
    Setting(base::Preferences& store, std::string key, T absent, std::function<void(const T&)> onSet = nullptr)
        : store_(store), key_(std::move(key)), default_(std::move(absent)), onSet_(std::move(onSet)), last_(get()) {
        storeChanges_ = store_.onChange([this] { last_.set(get()); });
    }
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    /// Always what the store holds now, also from within another setting's observer.
    T get() const {
        const auto stored = store_.value(key_);
        const auto known = stored ? SettingType<T>::fromStored(*stored) : std::nullopt;
        return known.value_or(default_);
    }

    void set(T value) {
        const bool isChange = get() != value;
        store_.set(key_, SettingType<T>::toStored(value));
        if (isChange && onSet_) onSet_(value);
    }

    /// Calls the handler at once, then on each change.
    base::Subscription observe(std::function<void(const T&)> handler) { return last_.observe(std::move(handler)); }

private:
    base::Preferences& store_;
    std::string key_;
    T default_;
    std::function<void(const T&)> onSet_;
    base::Observable<T> last_;
    base::Subscription storeChanges_;
};

}  // namespace tessivox::core
