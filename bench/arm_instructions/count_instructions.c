/* Plugin for QEMU's user-mode emulators: counts the instructions that the emulated program executes
 * and writes the number to a file. Where the program marks calls, a second line has the
 * instructions of the costliest: a mark is a system call whose first argument is 0x6D61726B and
 * whose second is 1 at the beginning of a call and 0 at its end.
 *
 *     qemu-aarch64 -plugin ./count_instructions.so,out=FILE PROGRAM
 *
 * Debian packages no header for plugins; declared here is the part of the interface, version 1,
 * that this one uses.
 */
#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#define EXPORT __attribute__((visibility("default")))

struct qemu_plugin_tb;
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id,
                                           void (*translated)(uint64_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* block,
                                          void (*executed)(unsigned, void*), int registers,
                                          void* data);
void qemu_plugin_register_vcpu_syscall_cb(uint64_t id,
                                          void (*called)(uint64_t, unsigned, int64_t, uint64_t,
                                                         uint64_t, uint64_t, uint64_t, uint64_t,
                                                         uint64_t, uint64_t, uint64_t));
void qemu_plugin_register_atexit_cb(uint64_t id, void (*ended)(uint64_t, void*), void* data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);

EXPORT int qemu_plugin_version = 1;

static const char* out_path;
static uint64_t instructions;
static uint64_t at_begin;  /* of the marked call */
static uint64_t costliest; /* of all marked calls; 0 without any */

/* One straight run of instructions is about to be executed. */
static void count_block(unsigned cpu, void* size) {
    (void)cpu;
    instructions += (uintptr_t)size;
}

static void watch_block(uint64_t id, struct qemu_plugin_tb* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(block, count_block, 0,
                                         (void*)(uintptr_t)qemu_plugin_tb_n_insns(block));
}

static void see_mark(uint64_t id, unsigned cpu, int64_t number, uint64_t mark, uint64_t begins,
                     uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8) {
    (void)id, (void)cpu, (void)number, (void)a3, (void)a4, (void)a5, (void)a6, (void)a7, (void)a8;
    if (mark != 0x6D61726B) {
        return;
    }
    if (begins) {
        at_begin = instructions;
    } else if (instructions - at_begin > costliest) {
        costliest = instructions - at_begin;
    }
}

static void write_count(uint64_t id, void* data) {
    (void)id;
    (void)data;
    FILE* const out = fopen(out_path, "w");
    if (out == NULL || fprintf(out, "%" PRIu64 "\n", instructions) < 0 ||
        (costliest > 0 && fprintf(out, "%" PRIu64 "\n", costliest) < 0) || fclose(out) != 0) {
        perror(out_path);
    }
}

EXPORT int qemu_plugin_install(uint64_t id, const void* emulator, int argc, char** argv) {
    (void)emulator;
    if (argc != 1 || strncmp(argv[0], "out=", 4) != 0) {
        fprintf(stderr, "count_instructions: out=FILE is missing\n");
        return -1;
    }
    out_path = strdup(argv[0] + 4);
    qemu_plugin_register_vcpu_tb_trans_cb(id, watch_block);
    qemu_plugin_register_vcpu_syscall_cb(id, see_mark);
    qemu_plugin_register_atexit_cb(id, write_count, NULL);
    return 0;
}
