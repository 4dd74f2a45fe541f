# Shared tail of the stubs into the reference library. On entry r11 holds
# the stub's index and the caller's arguments are untouched in registers and
# on the stack; the routine is reached by a jump, so it returns straight to
# the caller with whatever result it leaves.
  .text
  .globl vorn_reference_dispatch
  .hidden vorn_reference_dispatch
  .type vorn_reference_dispatch, @function
  .p2align 4
vorn_reference_dispatch:
  leaq vorn_reference_slots(%rip), %r10
  movq (%r10,%r11,8), %r10
  testq %r10, %r10
  jz 1f
  jmpq *%r10
1:
  # First call: keep the argument registers (and rax, the vector-register
  # count of variadic calls) across the resolver.
  pushq %rbp
  movq %rsp, %rbp
  subq $192, %rsp
  movq %rdi, 0(%rsp)
  movq %rsi, 8(%rsp)
  movq %rdx, 16(%rsp)
  movq %rcx, 24(%rsp)
  movq %r8, 32(%rsp)
  movq %r9, 40(%rsp)
  movq %rax, 48(%rsp)
  movdqa %xmm0, 64(%rsp)
  movdqa %xmm1, 80(%rsp)
  movdqa %xmm2, 96(%rsp)
  movdqa %xmm3, 112(%rsp)
  movdqa %xmm4, 128(%rsp)
  movdqa %xmm5, 144(%rsp)
  movdqa %xmm6, 160(%rsp)
  movdqa %xmm7, 176(%rsp)
  movl %r11d, %edi
  call vorn_reference_resolve
  movq %rax, %r10
  movq 0(%rsp), %rdi
  movq 8(%rsp), %rsi
  movq 16(%rsp), %rdx
  movq 24(%rsp), %rcx
  movq 32(%rsp), %r8
  movq 40(%rsp), %r9
  movq 48(%rsp), %rax
  movdqa 64(%rsp), %xmm0
  movdqa 80(%rsp), %xmm1
  movdqa 96(%rsp), %xmm2
  movdqa 112(%rsp), %xmm3
  movdqa 128(%rsp), %xmm4
  movdqa 144(%rsp), %xmm5
  movdqa 160(%rsp), %xmm6
  movdqa 176(%rsp), %xmm7
  leave
  jmpq *%r10
  .size vorn_reference_dispatch, .-vorn_reference_dispatch
  .section .note.GNU-stack,"",@progbits
