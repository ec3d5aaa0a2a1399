// Prints what a board that is up has counted so far: "FRAMES-ENCODED PAGE-FLIPS DELIVERED DROPPED", the last
// two over all cameras.
#include <cstdio>

#include "board/Board.h"

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: probe BOARD-FOLDER\n");
        return 2;
    }
    const board::Board board(argv[1]);
    if (!board.usable()) {
        std::fprintf(stderr, "probe: no board is up in %s\n", argv[1]);
        return 1;
    }
    const board::State& state = board.state();
    unsigned long delivered = 0;
    unsigned long dropped = 0;
    for (const board::Camera& camera : state.cameras) {
        delivered += camera.delivered;
        dropped += camera.dropped;
    }
    std::printf("%lu %u %lu %lu\n", static_cast<unsigned long>(state.framesEncoded.load()),
                state.framebuffers[1].pans, delivered, dropped);
    return 0;
}
