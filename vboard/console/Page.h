#pragma once

namespace console {

/// page.html, as it stood when this was built.
extern const char* const kPage;

}  // namespace console
