#ifndef MADE_UP_SDK_VPU_IO_H
#define MADE_UP_SDK_VPU_IO_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    unsigned long cpu_addr, virt_uaddr, phy_addr;
    int size;
} vpu_mem_desc;

int IOGetPhyMem(vpu_mem_desc* memory);
int IOFreePhyMem(vpu_mem_desc* memory);
int IOGetVirtMem(vpu_mem_desc* memory);
int IOFreeVirtMem(vpu_mem_desc* memory);

#ifdef __cplusplus
}
#endif
#endif
