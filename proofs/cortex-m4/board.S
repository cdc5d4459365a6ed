// What a Cortex-M4 without an operating system needs to run the conformance program. Texts and the exit code
// go to the emulator (or debugger) by semihosting: operation in r0, argument in r1.
        .syntax unified
        .thumb
        .set write0, 0x04
        .set exit_extended, 0x20
        .set application_exit, 0x20026

        .section .vectors, "a"
        .word stack_top, reset

        .text
        .thumb_func
        .global reset
reset:  ldr r0, =bss_begin
        ldr r1, =bss_end
        movs r2, #0
1:      cmp r0, r1
        itt lo
        strlo r2, [r0], #4
        blo 1b
        bl main
        ldr r1, =application_exit
        push {r0}
        push {r1} // the reason lies before the code
        mov r1, sp
        movs r0, #exit_extended
        bkpt 0xab
2:      b 2b

        .thumb_func
        .global conformance_print
conformance_print:
        mov r1, r0
        movs r0, #write0
        bkpt 0xab
        bx lr
