/* Plugin for QEMU's user-mode emulators: counts the instructions that the emulated program executes
 * and writes the number to a file.
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
void qemu_plugin_register_atexit_cb(uint64_t id, void (*ended)(uint64_t, void*), void* data);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* block);

EXPORT int qemu_plugin_version = 1;

static const char* out_path;
static uint64_t instructions;

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

static void write_count(uint64_t id, void* data) {
    (void)id;
    (void)data;
    FILE* const out = fopen(out_path, "w");
    if (out == NULL || fprintf(out, "%" PRIu64 "\n", instructions) < 0 || fclose(out) != 0) {
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
    qemu_plugin_register_atexit_cb(id, write_count, NULL);
    return 0;
}
