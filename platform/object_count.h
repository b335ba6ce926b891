// Internal hook of the platform library: the number of QORBaseUnknown objects alive, so that
// the tests can check which error objects end their own lifetime. Never exported.
#pragma once

namespace qor::objects {

long alive() noexcept;

}  // namespace qor::objects
