#include "callbacks.h"

#include <algorithm>
#include <exception>

namespace standins {

void Callbacks::add(const Registration& registration) {
    const std::lock_guard lock(mutex_);
    if (Registration* known = find(registration))
        known->kinds |= registration.kinds;
    else
        registrations_.push_back(registration);
}

void Callbacks::remove(const Registration& registration) {
    std::unique_lock lock(mutex_);
    Registration* known = find(registration);
    if (known != nullptr && (known->kinds &= ~registration.kinds) == 0)
        registrations_.erase(registrations_.begin() + (known - registrations_.data()));
    lock.unlock();
    const std::lock_guard callHasEnded(calling_);
}

void Callbacks::clear() {
    const std::lock_guard lock(mutex_);
    registrations_.clear();
}

void Callbacks::endPointsChanged() {
    callOut(EndPoints, [](const Registration& registration) { registration.callback(registration.target); });
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
        callOut(kinds, [&](const Registration& one) { static_cast<Listener*>(one.target)->Receive(made); });
    });
}

Callbacks::Registration* Callbacks::find(const Registration& wanted) {
    const auto found = std::find_if(registrations_.begin(), registrations_.end(), [&](const Registration& known) {
        return known.target == wanted.target && known.callback == wanted.callback;
    });
    return found == registrations_.end() ? nullptr : &*found;
}

bool Callbacks::isRegistered(const Registration& registration, unsigned kinds) {
    const std::lock_guard lock(mutex_);
    const Registration* known = find(registration);
    return known != nullptr && (known->kinds & kinds) != 0;
}

template <typename Call>
void Callbacks::callOut(unsigned kinds, Call call) {
    std::unique_lock lock(mutex_);
    const std::vector<Registration> all = registrations_;
    lock.unlock();
    for (const Registration& registration : all) {
        const std::lock_guard oneAtATime(calling_);
        try {
            if (isRegistered(registration, kinds))
                call(registration);
        } catch (const std::exception&) {
            // A program throws nothing of its own: a script has made one of the program's own calls throw this.
        }
    }
}

} // namespace standins
