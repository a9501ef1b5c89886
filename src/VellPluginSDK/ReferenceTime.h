#pragma once

// Every instant on the bus and in our files is seconds since 2001-01-01 00:00:00 UTC, with a
// fractional part.
namespace vell::ReferenceTime {

// That instant in seconds since 1970.
inline constexpr double epoch = 978307200;

// The present instant.
double now();

} // namespace vell::ReferenceTime
