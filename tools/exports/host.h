// host.h: whom an export may be for.
#pragma once

#include <string>
#include <string_view>

namespace exports {

// Why an export may not be for these hosts; empty when it may. What is taken: a host name, *.DOMAIN with at least two
// labels in the domain, an IPv4 or IPv6 address, and ADDRESS/PREFIX (at least /8 and /16). Everyone, in whatever words,
// is refused, and so is what may mean everyone: netgroups, other patterns, numbers that are no whole address.
std::string reasonAgainstHost(std::string_view host);

}  // namespace exports
