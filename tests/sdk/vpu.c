// A codec library to link with. There is no codec behind it: its start fails, and with it nothing else is called.
#include <vpu_io.h>
#include <vpu_lib.h>

unsigned int system_rev = 0x63000;

#define FAILS(type, name, ...) \
    type name(__VA_ARGS__)     \
    {                          \
        return (type)-1;       \
    }

FAILS(RetCode, vpu_Init, void* a)
FAILS(RetCode, vpu_GetVersionInfo, vpu_versioninfo* a)
FAILS(int, vpu_IsBusy, void)
FAILS(int, vpu_WaitForInt, int a)
FAILS(RetCode, vpu_SWReset, EncHandle a, int b)
FAILS(RetCode, vpu_EncOpen, EncHandle* a, EncOpenParam* b)
FAILS(RetCode, vpu_EncClose, EncHandle a)
FAILS(RetCode, vpu_EncGetInitialInfo, EncHandle a, EncInitialInfo* b)
FAILS(RetCode, vpu_EncRegisterFrameBuffer, EncHandle a, FrameBuffer* b, int c, int d, int e, PhysicalAddress f,
      PhysicalAddress g, EncExtBufInfo* h)
FAILS(RetCode, vpu_EncGetBitstreamBuffer, EncHandle a, PhysicalAddress* b, PhysicalAddress* c, Uint32* d)
FAILS(RetCode, vpu_EncUpdateBitstreamBuffer, EncHandle a, Uint32 b)
FAILS(RetCode, vpu_EncStartOneFrame, EncHandle a, EncParam* b)
FAILS(RetCode, vpu_EncGetOutputInfo, EncHandle a, EncOutputInfo* b)
FAILS(RetCode, vpu_EncGiveCommand, EncHandle a, CodecCommand b, void* c)
FAILS(int, IOGetPhyMem, vpu_mem_desc* a)
FAILS(int, IOFreePhyMem, vpu_mem_desc* a)
FAILS(int, IOGetVirtMem, vpu_mem_desc* a)
FAILS(int, IOFreeVirtMem, vpu_mem_desc* a)

void vpu_UnInit(void)
{
}
