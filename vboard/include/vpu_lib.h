/// The codec library's interface as the board's SDK declares it: the part that encoding uses.
///
/// Releases of the SDK differ in members that an encoder of H.264 never sets: clear a record before filling
/// it and do not rely on the order of its members.
///
/// Threads: one at a time for a handle; the library itself is shared by all handles of a process.
/// Units:   bitRate kbit/s; frameRateInfo frames per second (numerator in the low 16 bits, denominator less
///          one above them); sizes and strides bytes; picture sizes pixels; PhysicalAddress physical.
#ifndef VPU_LIB_H
#define VPU_LIB_H

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Uint8;
typedef unsigned short Uint16;
typedef unsigned long Uint32;
typedef Uint32 PhysicalAddress;
typedef Uint32 VirtualAddress;

/// Bits 12 and up name the processor: 0x61 Solo and DualLite, 0x63 Dual and Quad. Valid after vpu_Init.
extern unsigned int system_rev;  // NOLINT(readability-identifier-naming): the SDK's name

typedef enum {
    RETCODE_SUCCESS = 0,
    RETCODE_FAILURE = -1,
    RETCODE_INVALID_HANDLE = -2,
    RETCODE_INVALID_PARAM = -3,
    RETCODE_INVALID_COMMAND = -4,
    RETCODE_ROTATOR_OUTPUT_NOT_SET = -5,
    RETCODE_FRAME_NOT_COMPLETE = -6,
    RETCODE_INVALID_FRAME_BUFFER = -7,
    RETCODE_INSUFFICIENT_FRAME_BUFFERS = -8,
    RETCODE_INVALID_STRIDE = -9,
    RETCODE_WRONG_CALL_SEQUENCE = -10,
    RETCODE_ROTATOR_STRIDE_NOT_SET = -11,
    RETCODE_CALLED_BEFORE = -12,
    RETCODE_NOT_INITIALIZED = -13,
    RETCODE_NOT_SUPPORTED = -15,
    RETCODE_FAILURE_TIMEOUT = -17,
    RETCODE_MEMORY_ACCESS_VIOLATION = -18
} RetCode;

typedef enum {
    STD_MPEG4 = 0,
    STD_H263,
    STD_AVC,
    STD_VC1,
    STD_MPEG2,
    STD_DIV3,
    STD_RV,
    STD_MJPG,
    STD_AVS,
    STD_VP8
} CodStd;

typedef enum { LINEAR_FRAME_MAP = 0, TILED_FRAME_MB_RASTER_MAP = 1, TILED_FIELD_MB_RASTER_MAP = 2 } MapType;

/// Commands of vpu_EncGiveCommand. Use the names: the numbers are each SDK's own.
typedef enum { ENC_PUT_AVC_HEADER, ENC_SET_INTRA_REFRESH_MODE } CodecCommand;

typedef enum { SPS_RBSP = 0, PPS_RBSP = 1, SPS_RBSP_MVC, PPS_RBSP_MVC } AvcHeaderType;

typedef struct {
    int fw_major, fw_minor, fw_release, fw_code;
    int lib_major, lib_minor, lib_release;
} vpu_versioninfo;

typedef struct {
    Uint32 strideY, strideC;
    int myIndex;
    PhysicalAddress bufY, bufCb, bufCr, bufMvCol;
} FrameBuffer;

typedef struct {
    int sliceMode;      ///< 0: one slice a picture
    int sliceSizeMode;  ///< what sliceSize counts, when a picture has several
    int sliceSize;
} EncSliceMode;

typedef struct {
    int video_signal_type_pres_flag;
    char video_format, video_full_range_flag;
    int colour_descrip_pres_flag;
    char colour_primaries, transfer_characteristics, matrix_coeff;
} VuiParam;

typedef struct {
    int avc_constrainedIntraPredFlag;
    int avc_disableDeblk;
    int avc_deblkFilterOffsetAlpha, avc_deblkFilterOffsetBeta;
    int avc_chromaQpOffset;
    int avc_audEnable;
    int avc_fmoEnable, avc_fmoSliceNum, avc_fmoType, avc_fmoSliceSaveBufSize;
    int avc_frameCroppingFlag;
    int avc_frameCropLeft, avc_frameCropRight, avc_frameCropTop, avc_frameCropBottom;
    int mvc_extension, interview_en, paraset_refresh_en, prefix_nal_en;
    int avc_vui_present_flag;
    VuiParam avc_vui_param;
    int avc_level;
} EncAvcParam;

/// The parameters of the other codecs have no meaning to an encoder of H.264: they only take their place in
/// the union.
typedef struct {
    int reserved;
} EncMp4Param;
typedef struct {
    int reserved;
} EncH263Param;
typedef struct {
    int reserved;
} EncMjpgParam;

typedef struct {
    PhysicalAddress bitstreamBuffer;
    Uint32 bitstreamBufferSize;
    CodStd bitstreamFormat;
    int picWidth, picHeight;
    Uint32 frameRateInfo;
    int bitRate;  ///< 0: no rate control, EncParam.quantParam counts
    int initialDelay;
    int vbvBufferSize;  ///< bits; 0: the library's choice
    int enableAutoSkip;
    int gopSize;  ///< frames from one I-frame to the next; 0: only the first one
    int linear2TiledEnable;
    int mapType;
    EncSliceMode slicemode;
    int intraRefresh;
    int sliceReport, mbReport, mbQpReport;
    int rcIntraQp;         ///< -1: the library's choice
    int chromaInterleave;  ///< 1: Cb and Cr bytes alternate from bufCb on
    int dynamicAllocEnable;
    int ringBufferEnable;
    union {
        EncMp4Param mp4Param;
        EncH263Param h263Param;
        EncAvcParam avcParam;
        EncMjpgParam mjpgParam;
    } EncStdParam;
    int userQpMin, userQpMax;
    int userQpMinEnable, userQpMaxEnable;
    Uint32 userGamma;
    int RcIntervalMode, MbInterval;
    int avcIntra16x16OnlyModeEnable;
    int MESearchRange, MEUseZeroPmv;
    int IntraCostWeight;
} EncOpenParam;

typedef struct {
    int sliceInfoBufSize, mbInfoBufSize, mvInfoBufSize;
} EncReportBufSize;

typedef struct {
    int minFrameBufferCount;
    EncReportBufSize reportBufSize;
} EncInitialInfo;

typedef struct {
    PhysicalAddress bufferBase;
    int bufferSize;
} ExtBufCfg;

typedef struct {
    PhysicalAddress subSampBaseAMvc, subSampBaseBMvc;
    ExtBufCfg scratchBuf;
} EncExtBufInfo;

typedef struct {
    FrameBuffer* sourceFrame;
    int encTopOffset, encLeftOffset;
    int forceIPicture;
    int skipPicture;
    int quantParam;  ///< 0 to 51; counts when there is no rate control
    PhysicalAddress picStreamBufferAddr;
    int picStreamBufferSize;
    int enableAutoSkip;
} EncParam;

typedef struct {
    int enable, type, size;
    Uint8* addr;
} EncReportInfo;

typedef struct {
    PhysicalAddress bitstreamBuffer;
    Uint32 bitstreamSize;
    int bitstreamWrapAround;
    int skipEncoded;
    int picType;  ///< 0: I, 1: P
    int numOfSlices;
    int reconFrameIndex;
    Uint32 *pSliceInfo, *pMBInfo, *pMBQpInfo;
    EncReportInfo mbInfo, mvInfo, sliceInfo;
} EncOutputInfo;

typedef struct {
    PhysicalAddress buf;
    int size;
    int headerType;  ///< AvcHeaderType
    int userProfileLevelEnable, userProfileLevelIndication;
} EncHeaderParam;

/// One open instance. Both directions are the same to the library, so a reset takes either handle.
typedef struct EncInst EncInst;
typedef EncInst* EncHandle;
typedef EncInst DecInst;
typedef EncInst* DecHandle;

/// Takes the library into use; the argument is not used. Ends with as many vpu_UnInit.
RetCode vpu_Init(void* callback);
void vpu_UnInit(void);
RetCode vpu_GetVersionInfo(vpu_versioninfo* verinfo);

/// Not 0 while a frame was started and its end has not been waited for.
int vpu_IsBusy(void);
/// Waits for the end of the started frame. 0: done; else it is not, after timeout_in_ms milliseconds.
int vpu_WaitForInt(int timeout_in_ms);
/// Abandons the frame in work, whatever state the codec is in. The instance stays open. `index` is not used.
RetCode vpu_SWReset(DecHandle handle, int index);

RetCode vpu_EncOpen(EncHandle* pHandle, EncOpenParam* pop);
/// RETCODE_FRAME_NOT_COMPLETE while a frame is pending: reset the codec, then close again.
RetCode vpu_EncClose(EncHandle handle);
RetCode vpu_EncGetInitialInfo(EncHandle handle, EncInitialInfo* info);
RetCode vpu_EncRegisterFrameBuffer(EncHandle handle, FrameBuffer* bufArray, int num, int frameBufStride,
                                   int sourceBufStride, PhysicalAddress subSampBaseA,
                                   PhysicalAddress subSampBaseB, EncExtBufInfo* pExtBufInfo);
/// Reading the stream piece by piece: only what is pending in the buffer, from prdPrt on.
RetCode vpu_EncGetBitstreamBuffer(EncHandle handle, PhysicalAddress* prdPrt, PhysicalAddress* pwrPtr,
                                  Uint32* size);
RetCode vpu_EncUpdateBitstreamBuffer(EncHandle handle, Uint32 size);
RetCode vpu_EncStartOneFrame(EncHandle handle, EncParam* param);
RetCode vpu_EncGetOutputInfo(EncHandle handle, EncOutputInfo* info);
RetCode vpu_EncGiveCommand(EncHandle handle, CodecCommand cmd, void* pParam);

#ifdef __cplusplus
}
#endif

#endif
