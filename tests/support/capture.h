// Collects what the library reports, instead of letting it reach stderr.
#pragma once

#include <qualin/Ql.h>

#include <string>
#include <vector>

namespace qltest {

class MessageCapture {
public:
    MessageCapture() {
        current() = this;
        QlSetErrorHandler(&MessageCapture::handler);
    }
    ~MessageCapture() {
        QlSetErrorHandler(nullptr);
        current() = nullptr;
    }
    std::vector<int> indices;
    std::vector<std::string> texts;
    bool has(int index) const {
        for (int i : indices)
            if (i == index) return true;
        return false;
    }
    void clear() {
        indices.clear();
        texts.clear();
    }

private:
    static MessageCapture *&current() {
        static MessageCapture *c = nullptr;
        return c;
    }
    static int handler(QlErrorRecord *r) {
        if (MessageCapture *c = current()) {
            char buf[2048];
            QlGetErrorText(buf, sizeof buf);
            c->indices.push_back(r->index);
            c->texts.push_back(buf);
        }
        return 0;
    }
};

}  // namespace qltest
