#pragma once

// A system that lacks a call, or refuses it. Call it in a child: the process stays so.

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>

// From now on the call fails with `error`. False where the system lets no call be denied.
inline bool DenyCall(unsigned call, unsigned error) {
  sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                           BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                           BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  sock_fprog const filter = {4, program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}
