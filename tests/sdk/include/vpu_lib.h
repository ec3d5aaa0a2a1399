// The codec library's interface as some SDK may declare it: the names that the daemon uses, in an order of
// its own and with members that it does not know. It stands in for a real SDK in the proof that the daemon
// builds with one.
#ifndef MADE_UP_SDK_VPU_LIB_H
#define MADE_UP_SDK_VPU_LIB_H

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Uint8;
typedef unsigned long Uint32;
typedef Uint32 PhysicalAddress;

typedef enum {
    RETCODE_NOT_INITIALIZED = -13,
    RETCODE_FRAME_NOT_COMPLETE = -6,
    RETCODE_FAILURE = -1,
    RETCODE_SUCCESS = 0
} RetCode;
typedef enum { STD_MPEG4, STD_H263, STD_AVC } CodStd;
enum { LINEAR_FRAME_MAP, TILED_FRAME_MB_RASTER_MAP, TILED_FIELD_MB_RASTER_MAP };
typedef enum { ENC_PUT_AVC_HEADER = 40, ENC_SET_INTRA_REFRESH_MODE = 70 } CodecCommand;
typedef enum { SPS_RBSP, PPS_RBSP } AvcHeaderType;

typedef struct EncInst* EncHandle;

typedef struct {
    int lib_major, lib_minor, lib_release, fw_major, fw_minor, fw_release, fw_code;
} vpu_versioninfo;

typedef struct {
    PhysicalAddress bufY, bufCb, bufCr, bufMvCol, bufExtra;
    int myIndex;
    Uint32 strideY, strideC;
} FrameBuffer;

typedef struct {
    int sliceSize, sliceMode, sliceSizeMode;
} EncSliceMode;

typedef struct {
    int colour_descrip_pres_flag, video_signal_type_pres_flag;
    char matrix_coeff, transfer_characteristics, colour_primaries, video_full_range_flag, video_format;
} VuiParam;

typedef struct {
    VuiParam avc_vui_param;
    int avc_level, avc_vui_present_flag, avc_constrainedIntraPredFlag, avc_disableDeblk;
    int avc_deblkFilterOffsetAlpha, avc_deblkFilterOffsetBeta, avc_chromaQpOffset, avc_audEnable;
    int avc_fmoEnable, avc_fmoSliceNum, avc_fmoType, avc_fmoSliceSaveBufSize;
    int avc_frameCroppingFlag, avc_frameCropLeft, avc_frameCropRight, avc_frameCropTop, avc_frameCropBottom;
    int mvc_extension, interview_en, paraset_refresh_en, prefix_nal_en, unknown_to_the_daemon;
} EncAvcParam;

typedef struct {
    CodStd bitstreamFormat;
    PhysicalAddress bitstreamBuffer;
    Uint32 bitstreamBufferSize, frameRateInfo, userGamma;
    int picWidth, picHeight, bitRate, initialDelay, vbvBufferSize, enableAutoSkip, gopSize;
    int linear2TiledEnable, mapType, intraRefresh, sliceReport, mbReport, mbQpReport, rcIntraQp;
    int chromaInterleave, dynamicAllocEnable, ringBufferEnable;
    EncSliceMode slicemode;
    union {
        EncAvcParam avcParam;
        int otherCodec[64];
    } EncStdParam;
    int userQpMin, userQpMax, userQpMinEnable, userQpMaxEnable, RcIntervalMode, MbInterval;
    int avcIntra16x16OnlyModeEnable, MESearchRange, MEUseZeroPmv, IntraCostWeight, unknown_to_the_daemon;
} EncOpenParam;

typedef struct {
    int mvInfoBufSize, mbInfoBufSize, sliceInfoBufSize;
} EncReportBufSize;
typedef struct {
    EncReportBufSize reportBufSize;
    int minFrameBufferCount;
} EncInitialInfo;

typedef struct {
    struct {
        int bufferSize;
        PhysicalAddress bufferBase;
    } scratchBuf;
    PhysicalAddress subSampBaseAMvc, subSampBaseBMvc;
} EncExtBufInfo;

typedef struct {
    int encTopOffset, encLeftOffset, forceIPicture, skipPicture, quantParam, enableAutoSkip;
    int picStreamBufferSize, unknown_to_the_daemon;
    PhysicalAddress picStreamBufferAddr;
    FrameBuffer* sourceFrame;
} EncParam;

typedef struct {
    Uint8* addr;
    int enable, type, size;
} EncReportInfo;
typedef struct {
    Uint32 bitstreamSize;
    PhysicalAddress bitstreamBuffer;
    int bitstreamWrapAround, skipEncoded, picType, numOfSlices, reconFrameIndex;
    Uint32 *pSliceInfo, *pMBInfo, *pMBQpInfo;
    EncReportInfo mbInfo, mvInfo, sliceInfo;
} EncOutputInfo;

typedef struct {
    int headerType, size, userProfileLevelEnable, userProfileLevelIndication;
    PhysicalAddress buf;
} EncHeaderParam;

extern unsigned int system_rev;

RetCode vpu_Init(void* unused);
void vpu_UnInit(void);
RetCode vpu_GetVersionInfo(vpu_versioninfo* version);
int vpu_IsBusy(void);
int vpu_WaitForInt(int milliseconds);
RetCode vpu_SWReset(EncHandle handle, int index);
RetCode vpu_EncOpen(EncHandle* handle, EncOpenParam* parameters);
RetCode vpu_EncClose(EncHandle handle);
RetCode vpu_EncGetInitialInfo(EncHandle handle, EncInitialInfo* info);
RetCode vpu_EncRegisterFrameBuffer(EncHandle handle, FrameBuffer* buffers, int count, int stride,
                                   int sourceStride, PhysicalAddress subSampleA, PhysicalAddress subSampleB,
                                   EncExtBufInfo* extra);
RetCode vpu_EncGetBitstreamBuffer(EncHandle handle, PhysicalAddress* reading, PhysicalAddress* writing,
                                  Uint32* size);
RetCode vpu_EncUpdateBitstreamBuffer(EncHandle handle, Uint32 size);
RetCode vpu_EncStartOneFrame(EncHandle handle, EncParam* parameters);
RetCode vpu_EncGetOutputInfo(EncHandle handle, EncOutputInfo* info);
RetCode vpu_EncGiveCommand(EncHandle handle, CodecCommand command, void* argument);

#ifdef __cplusplus
}
#endif
#endif
