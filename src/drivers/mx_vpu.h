#pragma once

#include <sys/types.h>
#include <vpu_io.h>
#include <vpu_lib.h>

#include <memory>
#include <vector>

#include "drivers/mx_vpu_buffer.h"
#include "lib/VideoWriter.h"

/// The H.264 encoder: it reads each picture from its physical address, uncopied, and hands every encoded
/// frame to a writer, one frame a chunk. A picture is 4:2:0 with interleaved chroma (NV12) right behind the
/// luma plane.
///
/// Threads:  main thread only (encoder and writer).
/// Lifetime: the constructor takes the codec library and the bitstream memory; setup() opens the encoder,
///           once; the destructor gives all of it back. The writer is not owned and must outlive the encoder.
/// Errors:   false with the state reached so far, mostly after one line on standard output that names the
///           step. An encode that hangs for some four seconds resets the codec and returns false.
/// Units:    pixels; bit rate kbit/s; addresses physical.
class mx_vpu {
public:
    struct VPU_CFG {
        unsigned width, height;
        unsigned mapType;  ///< 0: raster reference frames, else one of the library's tiled maps
        unsigned gop;      ///< frames from one I-frame to the next
        unsigned bitrate;  ///< 0: no rate control, `quality` counts
        u_int8_t quality;  ///< quantiser
    };

    mx_vpu();
    ~mx_vpu();

    mx_vpu(const mx_vpu&) = delete;
    mx_vpu& operator=(const mx_vpu&) = delete;
    mx_vpu(mx_vpu&&) = delete;
    mx_vpu& operator=(mx_vpu&&) = delete;

    /// The library is in use and the bitstream memory is there.
    bool isInit() const { return init; }

    /// Opens the encoder, gives it its frame memories and hands its parameter sets to the writer. Without a
    /// writer the output is dropped.
    bool setup(VPU_CFG config, VideoWriter* writer);

    /// Names the next picture to encode; it must stay as it is until process() returns. Nothing before
    /// setup().
    void write_buffer(unsigned int index, int physAddr);

    /// Encodes the picture and writes the frame.
    bool process();

    /// Makes the next encoded frame an I-frame.
    void restart();

private:
    bool obtainBitstreamMemory();
    bool openEncoder();
    void closeEncoder();
    bool readInitialInfo();

    bool alloc_buffers();
    bool allocateReferences(int subSamplingFrames);
    bool registerReferences();
    bool allocateSource();
    mx_vpu_buffer* addBuffer(unsigned mapType);
    void describeFrame(int index, const mx_vpu_buffer& memory);
    int alignedWidth() const;
    int alignedHeight() const;

    bool fill_enc_headers();
    bool captureHeader(AvcHeaderType type);
    void setEncodeParameters();

    bool waitForFrame();
    bool process_buffer(PhysicalAddress physAddr, Uint32 size);
    bool process_ring_buffer(unsigned long start, unsigned long end, PhysicalAddress physBase,
                             long threshold);
    bool drainRingBuffer();
    bool writeWrapped(unsigned long source, unsigned long count, unsigned long start, unsigned long end);
    char* bitstreamAt(PhysicalAddress physAddr, Uint32 size) const;

    bool init = false;
    VPU_CFG cfg = {};
    struct {
        vpu_mem_desc mem_desc;  // the bitstream buffer
        EncParam enc_param;     // of the next frame
        int minBuffers;         // reference frames that the library asks for
        int buffers;            // entries of o_framebuffer
        bool mvc;
        bool mvc_refresh_en;
        int src_buffid;  // the entry of the picture to encode
        bool ring_buff_en;
        bool avc_vui_present;
        unsigned long virt_bsbuf_start;  // the bitstream buffer in this process
        unsigned long virt_bsbuf_end;
    } data = {};
    EncHandle o_encoder = nullptr;
    FrameBuffer* o_framebuffer = nullptr;  // owned, from calloc
    VideoWriter* o_writer = nullptr;
    std::vector<std::unique_ptr<mx_vpu_buffer>> o_bufferPool;
};
