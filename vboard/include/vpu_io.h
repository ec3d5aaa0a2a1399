/// Physically contiguous memory for the codec, as the board's SDK declares it.
///
/// Threads: any.
/// Units:   bytes; `phy_addr` is physical, `virt_uaddr` an address of the calling process. Clear a
///          vpu_mem_desc before its first use: a field that holds 0 stands for "nothing held".
#ifndef VPU_IO_H
#define VPU_IO_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    int size;                  ///< wanted size; set by the caller
    unsigned long phy_addr;    ///< set by IOGetPhyMem
    unsigned long cpu_addr;    ///< the kernel's own address of the block; of no use to a process
    unsigned long virt_uaddr;  ///< set by IOGetVirtMem
} vpu_mem_desc;

/// Allocates `size` bytes, zeroed. 0 when done, -1 when there is no room or the size is not positive.
int IOGetPhyMem(vpu_mem_desc* buff);

/// Releases what IOGetPhyMem gave. 0 when done, also for a record that holds nothing; -1 when the address is
/// not the start of an allocation of the codec's.
int IOFreePhyMem(vpu_mem_desc* buff);

/// Maps the block into the process. -1 when failed. Any other result says no more than "done": where
/// addresses are wider than an int it cannot carry one, and `virt_uaddr` is to be read instead.
int IOGetVirtMem(vpu_mem_desc* buff);

/// Unmaps what IOGetVirtMem mapped. 0 when done.
int IOFreeVirtMem(vpu_mem_desc* buff);

#ifdef __cplusplus
}
#endif

#endif
