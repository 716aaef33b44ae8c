#pragma once

namespace dt {

class DeathTestImpl {
 public:
  void set_status(int s) { status_ = s; }
  int status() const { return status_; }

 private:
  int status_ = 0;
};

class ForkingDeathTest : public DeathTestImpl {
 public:
  int Wait();
  bool Done() { return status() != 0; }
};

typedef DeathTestImpl LegacyImpl;

inline void Reset(LegacyImpl& impl) { impl.set_status(0); }

}  // namespace dt
