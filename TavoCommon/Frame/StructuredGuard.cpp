// A structured-exception frame installed by hand: neither of our compilers offers __try/__except
// for i686 in the same way, and the frame must work for both. The frame is an
// EXCEPTION_REGISTRATION record pushed on fs:[0], extended by the caller's frame pointer and slots
// for the exception code and the filter. Its handler unwinds every frame above it with RtlUnwind,
// exactly like a compiler's __except(EXCEPTION_EXECUTE_HANDLER), and resumes after the guarded call;
// or, when the caller asked for it, answers like __except(EXCEPTION_CONTINUE_EXECUTION) and touches
// nothing.
//
// Record, from the address in fs:[0] upwards:
//   +0 next record   +4 handler   +8 saved ebp   +12 exception code (0 while none)   +16 filter
#include "Trace.h"

#if !defined(__i386__)
#error "The structured guard is written for i686."
#endif

extern "C" DWORD __cdecl TavoGuardedCall(void (*pfn)(void*), void* pv, DWORD dwFilter);

__asm__(
    ".text\n"
    ".globl _TavoGuardedCall\n"
    "_TavoGuardedCall:\n"
    "    pushl %ebp\n"
    "    movl  %esp, %ebp\n"
    "    pushl %ebx\n"
    "    pushl %esi\n"
    "    pushl %edi\n"
    "    pushl 16(%ebp)\n"                // filter
    "    pushl $0\n"                      // exception code
    "    pushl %ebp\n"                    // frame pointer to resume with
    "    pushl $_TavoGuardHandler\n"
    "    pushl %fs:0\n"
    "    movl  %esp, %fs:0\n"
    "    pushl 12(%ebp)\n"
    "    call  *8(%ebp)\n"
    "    addl  $4, %esp\n"
    "_TavoGuardDone:\n"                   // esp points at the record here, on both roads
    "    movl  12(%esp), %eax\n"
    "    popl  %ecx\n"
    "    movl  %ecx, %fs:0\n"
    "    addl  $16, %esp\n"
    "    popl  %edi\n"
    "    popl  %esi\n"
    "    popl  %ebx\n"
    "    popl  %ebp\n"
    "    ret\n"
    "\n"
    // EXCEPTION_DISPOSITION __cdecl handler(EXCEPTION_RECORD*, void* frame, CONTEXT*, void*)
    "_TavoGuardHandler:\n"
    "    movl  4(%esp), %eax\n"
    "    testl $6, 4(%eax)\n"             // EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND
    "    jnz   1f\n"
    "    movl  8(%esp), %ecx\n"
    "    cmpl  $0, 16(%ecx)\n"
    "    je    4f\n"
    "    xorl  %eax, %eax\n"             // ExceptionContinueExecution
    "    ret\n"
    "4:  movl  8(%esp), %ebx\n"
    "    movl  (%eax), %ecx\n"
    "    testl %ecx, %ecx\n"
    "    jnz   3f\n"
    "    movl  $0x80000000, %ecx\n"       // keep 'an exception happened' distinct from 0
    "3:  movl  %ecx, 12(%ebx)\n"
    "    pushl %ebx\n"                    // RtlUnwind may trash every register but esp
    "    pushl $0\n"
    "    pushl %eax\n"
    "    pushl $2f\n"
    "    pushl %ebx\n"
    "    call  *__imp__RtlUnwind@16\n"
    "2:  popl  %eax\n"
    "    movl  8(%eax), %ebp\n"
    "    movl  %eax, %esp\n"
    "    jmp   _TavoGuardDone\n"
    "1:  movl  $1, %eax\n"                // ExceptionContinueSearch
    "    ret\n");

namespace Tavo {

DWORD CallWithStructuredGuard(void (*pfn)(void*), void* pv, GuardFilter filter)
{
    return TavoGuardedCall(pfn, pv, static_cast<DWORD>(filter));
}

} // namespace Tavo
