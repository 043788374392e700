// Runs a probe program in a child process and collects its exit code and output: the
// host-binding and kernel-loading tests observe each scenario from a fresh process.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

namespace qt {

struct Outcome {
  int exit_code = -1;
  std::string out, err;
};

inline std::string ReadAll(int fd) {
  std::string s;
  std::array<char, 4096> buf;
  ssize_t n;
  while ((n = read(fd, buf.data(), buf.size())) > 0) s.append(buf.data(), static_cast<size_t>(n));
  return s;
}

// Runs `path arg` with stdout and stderr captured; `prepare` runs in the child before the
// exec (e.g. to change its environment).
template <class Prepare>
Outcome RunChild(const std::string& path, const std::string& arg, Prepare prepare) {
  int out[2], err[2];
  EXPECT_EQ(pipe(out), 0);
  EXPECT_EQ(pipe(err), 0);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 1);
    dup2(err[1], 2);
    close(out[0]);
    close(err[0]);
    prepare();
    execl(path.c_str(), path.c_str(), arg.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(out[1]);
  close(err[1]);
  Outcome o;
  // Both pipes are small; read stdout then stderr (the probes write little).
  o.out = ReadAll(out[0]);
  o.err = ReadAll(err[0]);
  close(out[0]);
  close(err[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  o.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return o;
}

}  // namespace qt
