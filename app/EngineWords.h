#ifndef QUORVANE_APP_ENGINE_WORDS_H
#define QUORVANE_APP_ENGINE_WORDS_H

#include <iostream>
#include <streambuf>
#include <string>

// While it lives, listens to what is written to std::cout and std::cerr and passes it on. The
// engine tells the reason of a failure nowhere else.
class EngineWords {
  public:
    // The last line that is not empty.
    std::string last() const { return line_.empty() ? previous_ : line_; }

  private:
    class Listener : public std::streambuf {
      public:
        Listener(std::ostream& stream, EngineWords& words)
            : stream_(stream), words_(words), original_(stream.rdbuf(this)) {}

        ~Listener() override { stream_.rdbuf(original_); }

        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;

      protected:
        int overflow(int character) override;

        int sync() override { return original_->pubsync(); }

      private:
        std::ostream& stream_;
        EngineWords& words_;
        std::streambuf* original_;
    };

    std::string previous_;
    std::string line_;
    Listener out_{std::cout, *this};
    Listener err_{std::cerr, *this};
};

#endif
