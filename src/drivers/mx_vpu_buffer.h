#pragma once

#include <vpu_io.h>
#include <vpu_lib.h>

/// One frame memory of the encoder: a block of contiguous memory cut into a luma plane, two chroma planes
/// and, when asked for, an area for co-located motion vectors.
///
/// Threads:  main thread only.
/// Lifetime: holds its block from b_alloc() or b_alloc_tiled() until b_free() or destruction.
/// Errors:   false without a message, and nothing held; also when a block is held already.
/// Units:    bytes; plane addresses are physical (as an int: their bits count, not their sign).
class mx_vpu_buffer {
public:
    mx_vpu_buffer() = default;
    ~mx_vpu_buffer();

    mx_vpu_buffer(const mx_vpu_buffer&) = delete;
    mx_vpu_buffer& operator=(const mx_vpu_buffer&) = delete;
    mx_vpu_buffer(mx_vpu_buffer&&) = delete;
    mx_vpu_buffer& operator=(mx_vpu_buffer&&) = delete;

    /// A raster frame. `stdMode` is the CodStd it is for; `pixelFormat` 0 is 4:2:0, 1 is 4:2:2, 2 is 2:2:4,
    /// else 4:4:4; `mvCol` not 0 adds the motion vector area.
    bool b_alloc(int stdMode, int pixelFormat, int lumaStride, int height, int mvCol);

    /// The same for a tiled layout: each plane starts on a 4 KiB boundary, and addrY, addrCb, addrCr hold the
    /// packed page numbers of the planes, not addresses. `mapType` is the library's: 1 one plane a frame,
    /// else one a field.
    bool b_alloc_tiled(int stdMode, int pixelFormat, int lumaStride, int height, int mvCol, int mapType);

    void b_free();

    int addrY = 0;
    int addrCb = 0;
    int addrCr = 0;
    int strideY = 0;
    int strideC = 0;
    int mvColBuf = 0;  ///< 0: none
    vpu_mem_desc desc = {};
    bool alloc = false;  ///< the block is held

private:
    bool takeBlock(int size);
    bool mapBlock();
};
