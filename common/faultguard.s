# The frame that puts a structured exception handler around a call. GCC for
# x64 Windows has no __try/__except, but the system finds handlers through
# each function's unwind data, and the assembler can name one there
# (.seh_handler), so this one function carries the handler for the calls it
# makes. The handler itself is C++ (FaultGuardHandler in faultguard.cpp).
#
#   bool KyGuidGuardedFrame(GuardedCall call, void* callContext,
#                           FaultDecision decide, void* decideContext)
#
# Frame, as the handler sees it from the establisher frame (rsp after the
# prologue, since no frame register is used):
#   +0   32 bytes of home space for the callee
#   +32  decide
#   +40  decideContext
#   +48  padding, keeping rsp 16-byte aligned at the call
# The handler depends on these two offsets; keep them in step with
# kDecideSlot in faultguard.cpp.

        .text
        .p2align 4
        .globl  KyGuidGuardedFrame
        .def    KyGuidGuardedFrame; .scl 2; .type 32; .endef
        .seh_proc KyGuidGuardedFrame
KyGuidGuardedFrame:
        subq    $56, %rsp
        .seh_stackalloc 56
        .seh_endprologue
        .seh_handler FaultGuardHandler, @except
        movq    %r8, 32(%rsp)
        movq    %r9, 40(%rsp)
        movq    %rcx, %rax
        movq    %rdx, %rcx
        call    *%rax
        # The return address of the call must not be an epilogue, or the
        # unwinder would take this frame as already leaving: set the result
        # first.
        movl    $1, %eax
        addq    $56, %rsp
        ret

# Where a handled fault resumes: the unwind has restored rsp to the
# establisher frame and the non-volatile registers to their values at the
# call, so only the result and the epilogue remain.
        .globl  KyGuidGuardedRecovery
KyGuidGuardedRecovery:
        xorl    %eax, %eax
        addq    $56, %rsp
        ret
        .seh_endproc
