#include "callbacks.h"

#include <algorithm>
#include <exception>

namespace standins {

namespace {

auto isSameAs(const Callbacks::Registration& one) {
    return [one](const Callbacks::Registration& other) {
        return one.kind == other.kind && one.target == other.target && one.callback == other.callback;
    };
}

} // namespace

void Callbacks::add(const Registration& registration) {
    const std::lock_guard lock(mutex_);
    if (std::none_of(registrations_.begin(), registrations_.end(), isSameAs(registration)))
        registrations_.push_back(registration);
}

void Callbacks::remove(const Registration& registration) {
    {
        const std::lock_guard lock(mutex_);
        registrations_.erase(std::remove_if(registrations_.begin(), registrations_.end(), isSameAs(registration)),
                             registrations_.end());
    }
    const std::lock_guard callHasEnded(calling_);
}

void Callbacks::clear() {
    const std::lock_guard lock(mutex_);
    registrations_.clear();
}

void Callbacks::endPointsChanged() {
    for (const Registration& registration : registered(EndPoints))
        callOut(registration, [&] { registration.callback(registration.target); });
}

void Callbacks::received(const MessageFields& message) {
    deliver(message, isErrorType(message.type) ? Errors : Messages);
}

void Callbacks::failed(const std::string& error, const std::string& fault) {
    MessageFields message;
    message.type = ErrorMessage::TYPE;
    message.error = error;
    message.fault = fault;
    deliver(message, Errors);
}

// Comes back twice: as an error to those who listen for errors, and as a message of its own type to every listener,
// which makes an adapter ask for a new endpoint list whichever listener it has.
void Callbacks::unreachable(const EndPointFields& destination) {
    failed("Destination unreachable", textOf(destination));
    MessageFields notice;
    notice.type = "DestinationUnreachable";
    deliver(notice, Messages | Errors);
}

void Callbacks::deliver(const MessageFields& message, unsigned kinds) {
    withMessage(message, [&](const BrivonMessage& made) {
        for (const Registration& registration : registered(kinds))
            callOut(registration, [&] { static_cast<Listener*>(registration.target)->Receive(made); });
    });
}

// Each target once.
std::vector<Callbacks::Registration> Callbacks::registered(unsigned kinds) const {
    std::vector<Registration> found;
    const std::lock_guard lock(mutex_);
    for (const Registration& registration : registrations_) {
        const auto isSameTarget = [&](const Registration& other) {
            return other.target == registration.target && other.callback == registration.callback;
        };
        if ((registration.kind & kinds) != 0 && std::none_of(found.begin(), found.end(), isSameTarget))
            found.push_back(registration);
    }
    return found;
}

bool Callbacks::contains(const Registration& registration) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(registrations_.begin(), registrations_.end(), isSameAs(registration));
}

template <typename Call>
void Callbacks::callOut(const Registration& registration, Call call) {
    const std::lock_guard lock(calling_);
    if (!contains(registration))
        return;
    try {
        call();
    } catch (const std::exception&) {
        // Programs throw nothing into the library: this is what a script has thrown into the program, come back.
    }
}

} // namespace standins
