#pragma once

namespace console {

/// Gives the calling thread, and those that it starts from now on, the lowest ordinary priority: whoever
/// looks on must not cost the board a frame.
void stepBack();

}  // namespace console
