#include "drivers/mx_vpu.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kBitstreamBytes = 0x400000;
constexpr long kRingTransferBytes = 4096;
constexpr int kInterruptWaitMs = 200;
constexpr int kBusyRounds = 21;
constexpr int kFramesPerSecond = 30;
constexpr int kUnusedSliceSize = 4000;  // counts only where a picture has several slices
constexpr Uint32 kGamma = 0x6000;       // of 0x8000: 0.75
constexpr int kFrameAlignment = 16;     // pixels: whole macroblocks

constexpr unsigned kRasterMap = LINEAR_FRAME_MAP;
constexpr int kStdMode = STD_AVC;
constexpr int kPixelFormat420 = 0;
constexpr int kNoMotionVectors = 0;
constexpr int kSubSamplingFrames = 2;
constexpr int kSubSamplingFramesMvc = 4;

constexpr unsigned kRevisionShift = 12;
constexpr unsigned kRevisionFamilyMask = ~2U;  // Dual/Quad, 0x63, is of the family of Solo/DualLite
constexpr unsigned kRevisionFamily = 0x61;

bool isFamilyProcessor()
{
    return (system_rev >> kRevisionShift & kRevisionFamilyMask) == kRevisionFamily;
}

int roundUp(unsigned pixels)
{
    return (static_cast<int>(pixels) + kFrameAlignment - 1) / kFrameAlignment * kFrameAlignment;
}

/// Addresses come as an int of which the sign means nothing.
PhysicalAddress physical(int address)
{
    return static_cast<uint32_t>(address);
}

/// The library gives addresses in this process as numbers.
char* pointerTo(unsigned long virtualAddress)
{
    return reinterpret_cast<char*>(virtualAddress);  // NOLINT(performance-no-int-to-ptr)
}

bool said(bool done, const char* failureText)
{
    if (!done) {
        std::puts(failureText);
    }
    return done;
}

VuiParam videoRangeAndColours()
{
    VuiParam vui = {};
    vui.video_signal_type_pres_flag = 1;
    vui.video_full_range_flag = 1;
    vui.colour_descrip_pres_flag = 1;
    vui.colour_primaries = 1;
    vui.transfer_characteristics = 1;
    return vui;
}

EncAvcParam h264Parameters()
{
    EncAvcParam avc = {};
    avc.avc_deblkFilterOffsetAlpha = 6;
    avc.avc_chromaQpOffset = 10;
    avc.avc_vui_param = videoRangeAndColours();
    if (!isFamilyProcessor()) {
        avc.avc_fmoSliceNum = 1;
        avc.avc_fmoSliceSaveBufSize = 32;
    }
    return avc;
}

EncSliceMode oneSliceAPicture()
{
    EncSliceMode slices = {};
    slices.sliceMode = 0;
    slices.sliceSizeMode = 0;
    slices.sliceSize = kUnusedSliceSize;
    return slices;
}

/// What is not named here is 0.
EncOpenParam openParameters(const mx_vpu::VPU_CFG& cfg, PhysicalAddress bitstream)
{
    EncOpenParam open = {};
    open.bitstreamBuffer = bitstream;
    open.bitstreamBufferSize = kBitstreamBytes;
    open.bitstreamFormat = STD_AVC;
    open.picWidth = static_cast<int>(cfg.width);
    open.picHeight = static_cast<int>(cfg.height);
    open.frameRateInfo = kFramesPerSecond;
    open.bitRate = static_cast<int>(cfg.bitrate);
    open.gopSize = static_cast<int>(cfg.gop);
    open.linear2TiledEnable = 1;
    open.mapType = static_cast<int>(cfg.mapType);
    open.slicemode = oneSliceAPicture();
    open.rcIntraQp = -1;        // the library picks it
    open.chromaInterleave = 1;  // NV12
    open.RcIntervalMode = 1;
    open.userGamma = kGamma;
    open.MESearchRange = 3;
    open.EncStdParam.avcParam = h264Parameters();
    return open;
}

bool openFailed(RetCode why)
{
    std::printf("Encoder open failed %d\n", static_cast<int>(why));
    return false;
}

}  // namespace

mx_vpu::mx_vpu()
{
    vpu_versioninfo version = {};
    if (!said(vpu_Init(nullptr) == RETCODE_SUCCESS, "VPU Init Failure.")) {
        return;
    }
    init = said(vpu_GetVersionInfo(&version) == RETCODE_SUCCESS, "Cannot get version info") &&
           obtainBitstreamMemory();
    if (!init) {
        vpu_UnInit();  // the destructor gives back only what was obtained as a whole
    }
}

mx_vpu::~mx_vpu()
{
    if (!init) {
        return;
    }
    o_bufferPool.clear();
    std::free(o_framebuffer);
    closeEncoder();
    IOFreeVirtMem(&data.mem_desc);
    IOFreePhyMem(&data.mem_desc);
    vpu_UnInit();
}

bool mx_vpu::obtainBitstreamMemory()
{
    data.mem_desc.size = kBitstreamBytes;
    if (!said(IOGetPhyMem(&data.mem_desc) == 0, "Unable to obtain physical memory")) {
        return false;
    }
    const bool mapped = said(IOGetVirtMem(&data.mem_desc) != -1, "Unable to map physical memory");
    if (!mapped) {
        IOFreePhyMem(&data.mem_desc);
    }
    return mapped;
}

bool mx_vpu::setup(VPU_CFG config, VideoWriter* writer)
{
    if (!init) {
        return openFailed(RETCODE_NOT_INITIALIZED);  // as the library would say, but it is not asked any more
    }
    cfg = config;
    o_writer = writer;
    closeEncoder();
    data.enc_param = {};
    data.ring_buff_en = false;
    data.avc_vui_present = false;
    if (!openEncoder() || !readInitialInfo() || !alloc_buffers()) {
        return false;
    }
    data.virt_bsbuf_start = data.mem_desc.virt_uaddr;
    data.virt_bsbuf_end = data.virt_bsbuf_start + kBitstreamBytes;
    if (!fill_enc_headers()) {
        return false;
    }
    setEncodeParameters();
    return true;
}

bool mx_vpu::openEncoder()
{
    if (isFamilyProcessor()) {
        data.mvc = false;
        data.mvc_refresh_en = false;
    }
    EncOpenParam parameters = openParameters(cfg, data.mem_desc.phy_addr);
    const RetCode result = vpu_EncOpen(&o_encoder, &parameters);
    if (result != RETCODE_SUCCESS) {
        o_encoder = nullptr;
        return openFailed(result);
    }
    int refreshMode = 1;
    vpu_EncGiveCommand(o_encoder, ENC_SET_INTRA_REFRESH_MODE,
                       &refreshMode);  // a refinement: it encodes without
    return true;
}

void mx_vpu::closeEncoder()
{
    if (o_encoder == nullptr) {
        return;
    }
    if (vpu_EncClose(o_encoder) == RETCODE_FRAME_NOT_COMPLETE) {
        vpu_SWReset(o_encoder, 0);
        vpu_EncClose(o_encoder);
    }
    o_encoder = nullptr;
}

bool mx_vpu::readInitialInfo()
{
    EncInitialInfo info = {};
    if (!said(vpu_EncGetInitialInfo(o_encoder, &info) == RETCODE_SUCCESS, "Encoder GetInitialInfo failed")) {
        return false;
    }
    data.minBuffers = info.minFrameBufferCount;
    std::printf("vpu minframe=%d mbbuff=%d mvbuff=%d slicebuff=%d\n", data.minBuffers,
                info.reportBufSize.mbInfoBufSize, info.reportBufSize.mvInfoBufSize,
                info.reportBufSize.sliceInfoBufSize);
    return true;
}

bool mx_vpu::alloc_buffers()
{
    if (!said(o_bufferPool.empty(), "Already alloc!")) {
        return false;
    }
    const int subSamplingFrames = data.mvc ? kSubSamplingFramesMvc : kSubSamplingFrames;
    data.src_buffid = data.minBuffers + subSamplingFrames;
    data.buffers = data.src_buffid + 1;
    std::free(o_framebuffer);  // of a setup that failed before it had a buffer
    o_framebuffer =
        static_cast<FrameBuffer*>(std::calloc(static_cast<size_t>(data.buffers), sizeof(FrameBuffer)));
    if (!said(o_framebuffer != nullptr, "Failed to allocate fb")) {
        return false;
    }
    return allocateReferences(subSamplingFrames) && registerReferences() && allocateSource();
}

/// Reference frames in the configured map, then the sub-sampling buffers, which are always raster.
bool mx_vpu::allocateReferences(int subSamplingFrames)
{
    const int count = data.minBuffers + subSamplingFrames;
    for (int index = 0; index < count; ++index) {
        const bool isReference = index < data.minBuffers;
        const mx_vpu_buffer* memory = addBuffer(isReference ? cfg.mapType : kRasterMap);
        if (memory == nullptr) {
            return false;
        }
        describeFrame(index, *memory);
    }
    return true;
}

bool mx_vpu::registerReferences()
{
    const FrameBuffer* subSampling = o_framebuffer + data.minBuffers;
    EncExtBufInfo extended = {};
    if (data.mvc) {
        extended.subSampBaseAMvc = subSampling[2].bufY;
        extended.subSampBaseBMvc = subSampling[3].bufY;
    }
    const int stride = alignedWidth();
    const RetCode result =
        vpu_EncRegisterFrameBuffer(o_encoder, o_framebuffer, data.minBuffers, stride, stride,
                                   subSampling[0].bufY, subSampling[1].bufY, &extended);
    if (result != RETCODE_SUCCESS) {
        std::printf("fbRegister frame buffer failed: %d\n", static_cast<int>(result));
    }
    return result == RETCODE_SUCCESS;
}

bool mx_vpu::allocateSource()
{
    const mx_vpu_buffer* memory = addBuffer(kRasterMap);
    if (memory == nullptr) {
        return false;
    }
    describeFrame(data.src_buffid, *memory);
    return true;
}

/// One more frame memory at the end of the pool, or null.
mx_vpu_buffer* mx_vpu::addBuffer(unsigned mapType)
{
    auto memory = std::make_unique<mx_vpu_buffer>();
    const bool done =
        mapType == kRasterMap
            ? memory->b_alloc(kStdMode, kPixelFormat420, alignedWidth(), alignedHeight(), kNoMotionVectors)
            : memory->b_alloc_tiled(kStdMode, kPixelFormat420, alignedWidth(), alignedHeight(),
                                    kNoMotionVectors, static_cast<int>(mapType));
    if (!done) {
        return nullptr;
    }
    o_bufferPool.push_back(std::move(memory));
    return o_bufferPool.back().get();
}

void mx_vpu::describeFrame(int index, const mx_vpu_buffer& memory)
{
    FrameBuffer& frame = o_framebuffer[index];
    frame.myIndex = index;
    frame.bufY = physical(memory.addrY);
    frame.bufCb = physical(memory.addrCb);
    frame.bufCr = physical(memory.addrCr);
    frame.bufMvCol = physical(memory.mvColBuf);
    frame.strideY = static_cast<Uint32>(memory.strideY);
    frame.strideC = static_cast<Uint32>(memory.strideC);
}

int mx_vpu::alignedWidth() const
{
    return roundUp(cfg.width);
}

int mx_vpu::alignedHeight() const
{
    return roundUp(cfg.height);
}

/// The stream does not repeat its parameter sets: the writer puts them in front of each file.
bool mx_vpu::fill_enc_headers()
{
    if (o_writer != nullptr) {
        o_writer->startHeader();
    }
    if (data.mvc && data.mvc_refresh_en) {
        return true;
    }
    return (data.avc_vui_present || captureHeader(SPS_RBSP)) && captureHeader(PPS_RBSP);
}

bool mx_vpu::captureHeader(AvcHeaderType type)
{
    EncHeaderParam header = {};
    header.headerType = type;
    if (vpu_EncGiveCommand(o_encoder, ENC_PUT_AVC_HEADER, &header) != RETCODE_SUCCESS) {
        return false;
    }
    const char* bytes = bitstreamAt(header.buf, static_cast<Uint32>(header.size));
    if (bytes == nullptr) {
        return false;
    }
    if (o_writer != nullptr) {
        o_writer->writeToHeader(bytes, static_cast<unsigned>(header.size));
    }
    return true;
}

void mx_vpu::setEncodeParameters()
{
    data.enc_param.sourceFrame = o_framebuffer + data.src_buffid;
    data.enc_param.encTopOffset = 0;
    data.enc_param.encLeftOffset = 0;
    data.enc_param.forceIPicture = 0;
    data.enc_param.skipPicture = 0;
    data.enc_param.quantParam = cfg.quality;
    data.enc_param.enableAutoSkip = 1;
}

void mx_vpu::write_buffer(unsigned int index, int physAddr)
{
    if (o_framebuffer == nullptr) {
        return;
    }
    const PhysicalAddress pixels = static_cast<PhysicalAddress>(cfg.width) * cfg.height;
    FrameBuffer& source = o_framebuffer[data.src_buffid];
    source.myIndex = static_cast<int>(index) + data.src_buffid;
    source.bufY = physical(physAddr);
    source.bufCb = source.bufY + pixels;
    source.bufCr = source.bufCb + pixels / 4;
}

void mx_vpu::restart()
{
    data.enc_param.forceIPicture = 1;
}

bool mx_vpu::process()
{
    EncOutputInfo output = {};
    if (vpu_EncStartOneFrame(o_encoder, &data.enc_param) != RETCODE_SUCCESS) {
        return false;
    }
    data.enc_param.forceIPicture = 0;
    if (!waitForFrame()) {
        return false;
    }
    const RetCode result = vpu_EncGetOutputInfo(o_encoder, &output);
    if (result != RETCODE_SUCCESS) {
        std::printf("vpu_EncGetOutputInfo failed Err code: %d\n", static_cast<int>(result));
        return false;
    }
    usleep(0);
    if (output.skipEncoded != 0) {
        std::puts("Skip encoding one Frame!");
    }
    if (data.ring_buff_en) {
        return drainRingBuffer();
    }
    return said(process_buffer(output.bitstreamBuffer, output.bitstreamSize),
                "writing bitstream buffer failed");
}

/// False when the codec hangs; it is reset then.
bool mx_vpu::waitForFrame()
{
    int roundsLeft = kBusyRounds;
    bool done = false;
    while (vpu_IsBusy() != 0) {
        if (data.ring_buff_en && !drainRingBuffer()) {
            return false;
        }
        if (--roundsLeft == 0) {
            vpu_SWReset(o_encoder, 0);
            return false;
        }
        if (vpu_WaitForInt(kInterruptWaitMs) == 0) {
            done = true;
        }
    }
    if (!done) {
        vpu_WaitForInt(kInterruptWaitMs);  // the codec was never seen busy: collect the end of the frame
    }
    return true;
}

bool mx_vpu::process_buffer(PhysicalAddress physAddr, Uint32 size)
{
    if (o_writer == nullptr) {
        return true;
    }
    char* bytes = bitstreamAt(physAddr, size);
    return bytes != nullptr && o_writer->writeChunk(bytes, static_cast<unsigned>(size));
}

/// Where `size` bytes at `physAddr` lie in this process; null unless all of them are in the bitstream buffer.
/// No bytes are nowhere, and are always there.
char* mx_vpu::bitstreamAt(PhysicalAddress physAddr, Uint32 size) const
{
    const PhysicalAddress offset = size == 0 ? 0 : physAddr - data.mem_desc.phy_addr;
    const bool inside = offset <= kBitstreamBytes && size <= kBitstreamBytes - offset;
    return inside ? pointerTo(data.mem_desc.virt_uaddr + offset) : nullptr;
}

bool mx_vpu::drainRingBuffer()
{
    return process_ring_buffer(data.virt_bsbuf_start, data.virt_bsbuf_end, data.mem_desc.phy_addr,
                               kRingTransferBytes);
}

/// Takes what is pending, in pieces of exactly `threshold` bytes; a threshold below 1 takes all of it.
bool mx_vpu::process_ring_buffer(unsigned long start, unsigned long end, PhysicalAddress physBase,
                                 long threshold)
{
    PhysicalAddress readPointer = 0;
    PhysicalAddress writePointer = 0;
    Uint32 pending = 0;
    if (!said(vpu_EncGetBitstreamBuffer(o_encoder, &readPointer, &writePointer, &pending) == RETCODE_SUCCESS,
              "EncGetBitstreamBuffer failed")) {
        return false;
    }
    const Uint32 count = threshold < 1 ? pending : static_cast<Uint32>(threshold);
    if (pending == 0 || pending < count) {
        return true;
    }
    if (!writeWrapped(start + (readPointer - physBase), count, start, end)) {
        return false;
    }
    return said(vpu_EncUpdateBitstreamBuffer(o_encoder, count) == RETCODE_SUCCESS,
                "EncUpdateBitstreamBuffer failed");
}

/// Writes `count` bytes from `source` on, going on at `start` where the buffer ends.
bool mx_vpu::writeWrapped(unsigned long source, unsigned long count, unsigned long start, unsigned long end)
{
    if (o_writer == nullptr) {
        return true;
    }
    if (source < start || source > end || count > end - start) {
        return false;
    }
    const unsigned long untilEnd = end - source;
    if (count <= untilEnd) {
        return o_writer->writeChunk(pointerTo(source), static_cast<unsigned>(count));
    }
    return o_writer->writeChunk(pointerTo(source), static_cast<unsigned>(untilEnd)) &&
           o_writer->writeChunk(pointerTo(start), static_cast<unsigned>(count - untilEnd));
}
