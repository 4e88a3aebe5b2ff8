// SPDX-License-Identifier: MIT
// A plugin for qemu's user emulation: writes to the file INSTRUCTIONS_FILE how many instructions
// all threads of the program have executed. Debian has no header of the interface (version 1); this
// is what is used of it.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

typedef uint64_t PluginId;
struct Block;
extern size_t qemu_plugin_tb_n_insns(const struct Block* block);
extern void qemu_plugin_register_vcpu_tb_trans_cb(PluginId id,
                                                  void (*onTranslated)(PluginId, struct Block*));
extern void qemu_plugin_register_vcpu_tb_exec_cb(struct Block* block,
                                                 void (*onExecuted)(unsigned, void*), int flags,
                                                 void* data);
extern void qemu_plugin_register_atexit_cb(PluginId id, void (*onExit)(PluginId, void*),
                                           void* data);

int qemu_plugin_version = 1;

enum { threads = 256 };
static uint64_t counts[threads];  // one each, so that no count is lost

static void onExecuted(unsigned thread, void* length) {
    counts[thread % threads] += (uintptr_t)length;
}

static void onTranslated(PluginId id, struct Block* block) {
    (void)id;
    qemu_plugin_register_vcpu_tb_exec_cb(block, onExecuted, 0,
                                         (void*)qemu_plugin_tb_n_insns(block));
}

static void onExit(PluginId id, void* data) {
    (void)id, (void)data;
    uint64_t sum = 0;
    for (int i = 0; i < threads; ++i) {
        sum += counts[i];
    }
    FILE* file = fopen(getenv("INSTRUCTIONS_FILE"), "w");
    if (file != NULL) {
        fprintf(file, "%llu\n", (unsigned long long)sum);
        fclose(file);
    }
}

int qemu_plugin_install(PluginId id, const void* machine, int count, char** arguments) {
    (void)machine, (void)count, (void)arguments;
    qemu_plugin_register_vcpu_tb_trans_cb(id, onTranslated);
    qemu_plugin_register_atexit_cb(id, onExit, NULL);
    return 0;
}
