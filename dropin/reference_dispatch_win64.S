# Shared tail of the stubs into the reference library, Win64 calling
# convention. On entry r11 holds the stub's index and the caller's arguments
# are untouched in registers and on the stack; the routine is reached by a
# jump, so it returns straight to the caller with whatever result it leaves.
  .text
  .globl vorn_reference_dispatch
  .p2align 4
vorn_reference_dispatch:
  leaq vorn_reference_slots(%rip), %r10
  movq (%r10,%r11,8), %r10
  testq %r10, %r10
  jz vorn_reference_first_call
  jmpq *%r10

# First call: the four register arguments wait in the caller's home area,
# the vector ones in this frame, while the resolver runs.
  .p2align 4
  .def vorn_reference_first_call; .scl 3; .type 32; .endef
  .seh_proc vorn_reference_first_call
vorn_reference_first_call:
  movq %rcx, 8(%rsp)
  movq %rdx, 16(%rsp)
  movq %r8, 24(%rsp)
  movq %r9, 32(%rsp)
  subq $104, %rsp
  .seh_stackalloc 104
  .seh_endprologue
  movdqa %xmm0, 32(%rsp)
  movdqa %xmm1, 48(%rsp)
  movdqa %xmm2, 64(%rsp)
  movdqa %xmm3, 80(%rsp)
  movl %r11d, %ecx
  call vorn_reference_resolve
  movdqa 32(%rsp), %xmm0
  movdqa 48(%rsp), %xmm1
  movdqa 64(%rsp), %xmm2
  movdqa 80(%rsp), %xmm3
  movq 112(%rsp), %rcx
  movq 120(%rsp), %rdx
  movq 128(%rsp), %r8
  movq 136(%rsp), %r9
  addq $104, %rsp
  rex64 jmpq *%rax
  .seh_endproc
