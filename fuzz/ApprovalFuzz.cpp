// The approval round trip reads outside input at every step: the app's reply
// line (the client frames it off a real socket), a request as the companion
// reads it from the socket, the agent's questions, and the question list and
// permission suggestions that the agent's reply is built from. Whatever the
// bytes: the client decodes exactly the first line within the limit, every
// record that decodes travels over the wire unchanged, and the agent's reply,
// when there is one, is one line of JSON with sorted keys that carries the
// agent's own questions and suggestions back whole.
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "FuzzDocument.h"
#include "approval/ApprovalClient.h"
#include "approval/ApprovalRecords.h"
#include "approval/ApprovalWire.h"
#include "approval/HookApproval.h"
#include "hook/Agents.h"
#include "json/OrderedJSON.h"
#include "platform/LocalSocket.h"
#include "support/Text.h"

namespace {

using namespace pelmora;
namespace LocalSocket = platform::LocalSocket;

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::string_view bytesOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// Valid records whose members the input rewrites one by one (FuzzDocument.h).
std::string responseText(std::string_view input) {
    return fuzz::objectText({{"decision", R"("allow")"}, {"message", ""}, {"answers", ""}}, input);
}

std::string requestText(std::string_view input) {
    return fuzz::objectText(
        {{"id", R"("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0")"},
         {"source", R"("claude")"},
         {"sessionID", R"("s")"},
         {"cwd", R"("\/Users\/ann")"},
         {"tool", R"("AskUserQuestion")"},
         {"summary", ""},
         {"suggestions", ""},
         {"questions",
          R"([{"header":"","multiSelect":false,"options":[{"description":"","label":"A"}],"question":"Q"}])"},
         {"questionsJSON", R"("[{\"options\":[{\"label\":\"A\"}],\"question\":\"Q\"}]")"}},
        input);
}

std::string questionsText(std::string_view input) {
    return fuzz::listText({{"question", R"("Q")"},
                           {"header", ""},
                           {"options", R"([{"label":"A"}])"},
                           {"multiSelect", ""}},
                          input);
}

template <class Record> std::optional<Record> decode(std::string_view text) {
    const std::optional<JSONValue> json = OrderedJSON::tryParse(text);
    return json ? Record::fromJSON(*json) : std::nullopt;
}

// A decoded record writes as one line that decodes to itself.
template <class Record> void checkWire(const Record& record) {
    const std::string line = OrderedJSON::serializeCompact(record.toJSON());
    check(line.find('\n') == std::string::npos);
    check(decode<Record>(line) == record);
}

// The value at `path` of a reply, as compact text (it must be there).
std::string compactAt(const JSONValue& root, std::initializer_list<std::string_view> path) {
    const JSONValue* value = root.value(path);
    check(value != nullptr);
    return OrderedJSON::serializeCompact(*value);
}

std::string text(std::string_view value) {
    return OrderedJSON::serializeCompact(JSONValue::string(std::string(value)));
}

// What every reply must be, and what each agent's must hold. The table of
// replies is the agents' contract; these are the parts of it that carry
// outside input.
void checkOutput(const ApprovalRequest& request, const ApprovalResponse& response) {
    const std::optional<std::string> output = ApprovalWire::hookOutput(request, response);
    if (response.decision == ApprovalDecision::ask) {
        check(!output);
    }
    if (!output) {
        return;
    }
    const std::optional<JSONValue> root = OrderedJSON::tryParse(*output);
    check(root && root->isObject() && OrderedJSON::serializeCompact(*root) == *output);
    for (std::size_t at = output->find('/'); at != std::string::npos;
         at = output->find('/', at + 1)) {
        check(at > 0 && (*output)[at - 1] == '\\');
    }
    const std::string reason = response.message.value_or("Denied from the Pelmora notch");
    const bool answered = request.questions && !request.questions->empty() && response.answers &&
                          response.answers->size() == request.questions->size();

    switch (Agents::row(request.source).reply) {
    case Agents::ReplyDialect::copilot:
    case Agents::ReplyDialect::devin:
        if (response.decision == ApprovalDecision::deny) {
            check(output->find(text(reason)) != std::string::npos);
        }
        return;
    case Agents::ReplyDialect::grok: {
        check(response.decision == ApprovalDecision::allow && answered);
        const JSONValue* given = root->value({"hookSpecificOutput", "permissionDecisionReason"});
        check(given != nullptr && given->stringValue() != nullptr);
        std::size_t at = 0;
        for (std::size_t index = 0; index < response.answers->size(); ++index) {
            const std::string entry = "Question: " + (*request.questions)[index].question +
                                      "\nThe user's answer: " + (*response.answers)[index];
            at = given->stringValue()->find(entry, at);
            check(at != std::string::npos);
            at += entry.size();
        }
        return;
    }
    case Agents::ReplyDialect::standard:
        break;
    }
    const JSONValue* decision = root->value({"hookSpecificOutput", "decision"});
    check(decision != nullptr);
    switch (response.decision) {
    case ApprovalDecision::allow:
        if (request.questions && !request.questions->empty()) {
            // The agent's own list goes back as it came, extra keys and all.
            check(answered && request.questionsJSON);
            check(compactAt(*decision, {"updatedInput", "questions"}) ==
                  OrderedJSON::serializeCompact(OrderedJSON::parse(*request.questionsJSON)));
            for (std::size_t index = 0; index < response.answers->size(); ++index) {
                // The last answer to a question text is the one that stands.
                std::size_t last = index;
                for (std::size_t later = index + 1; later < response.answers->size(); ++later) {
                    if ((*request.questions)[later].question ==
                        (*request.questions)[index].question) {
                        last = later;
                    }
                }
                const JSONValue* answers = decision->value({"updatedInput", "answers"});
                check(answers != nullptr);
                const JSONValue* answer = answers->find((*request.questions)[index].question);
                check(answer != nullptr && answer->stringValue() != nullptr &&
                      *answer->stringValue() == (*response.answers)[last]);
            }
        }
        break;
    case ApprovalDecision::allowAlways: {
        const std::optional<JSONValue> rules =
            request.suggestions ? OrderedJSON::tryParse(*request.suggestions) : std::nullopt;
        if (rules && rules->isArray() && !rules->arrayElements()->empty()) {
            check(compactAt(*decision, {"updatedPermissions"}) ==
                  OrderedJSON::serializeCompact(*rules));
        } else {
            check(decision->find("updatedPermissions") == nullptr);
        }
        break;
    }
    case ApprovalDecision::deny:
        check(compactAt(*decision, {"message"}) == text(reason));
        break;
    case ApprovalDecision::ask:
        break;
    }
}

// The app's reply over a real socket, as the hook's client reads it.
// A stand-in app on a thread of its own, started once: for each connection
// it reads the request line and answers with the bytes it was handed.
class App {
public:
    App() {
        char pattern[] = "/tmp/pelmora-approval-fuzz-XXXXXX";
        check(::mkdtemp(pattern) != nullptr);
        folder_ = pattern;
        listener_.emplace(folder_ / "approval.sock");
        server_ = std::thread([this] { serve(); });
    }
    ~App() {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        server_.join();
        listener_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    // Asks with the client while the app answers `reply`; gives the client's
    // result and the request line the app received.
    std::pair<std::optional<ApprovalResponse>, std::string> ask(const ApprovalRequest& request,
                                                                std::string reply) {
        {
            const std::lock_guard lock(mutex_);
            reply_ = std::move(reply);
            answered_ = false;
        }
        std::optional<ApprovalResponse> response =
            ApprovalClient::ask(request, 10, listener_->path().native());
        std::unique_lock lock(mutex_);
        answered_changed_.wait(lock, [this] { return answered_; });
        return {std::move(response), std::move(received_)};
    }

private:
    void serve() {
        for (;;) {
            // Short waits, so that the fuzzer's exit is not held up.
            const FileDescriptor peer = listener_->accept(LocalSocket::deadlineAfter(0.1));
            if (!peer.valid()) {
                const std::lock_guard lock(mutex_);
                if (stopping_) {
                    return;
                }
                continue;
            }
            const auto deadline = LocalSocket::deadlineAfter(10);
            std::string received =
                LocalSocket::readLine(peer.get(), deadline, ApprovalWire::maxLine).text;
            std::string reply;
            {
                const std::lock_guard lock(mutex_);
                reply = reply_;
            }
            LocalSocket::sendAll(peer.get(), reply, deadline); // the client may hang up first
            const std::lock_guard lock(mutex_);
            received_ = std::move(received);
            answered_ = true;
            answered_changed_.notify_all();
        }
    }

    std::filesystem::path folder_;
    std::optional<LocalSocket::Listener> listener_;
    std::mutex mutex_;
    std::condition_variable answered_changed_;
    std::string reply_;
    std::string received_;
    bool answered_ = false;
    bool stopping_ = false;
    std::thread server_;
};

const ApprovalRequest& wireRequest() {
    static const ApprovalRequest request = [] {
        ApprovalRequest made;
        made.id = "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0";
        made.source = Source::claude;
        made.sessionID = "s/1";
        made.cwd = "/Users/ann/It's here";
        made.tool = "AskUserQuestion";
        made.summary = "line\nbreak \"quoted\"";
        made.suggestions = R"([{"type":"addRules"}])";
        made.questions = {{"Which?", "", {{"A", ""}, {"B", "the other"}}, true}};
        made.questionsJSON = R"([{"options":[{"label":"A"},{"label":"B"}],"question":"Which?"}])";
        return made;
    }();
    return request;
}

void reply(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return;
    }
    // Half the time the line starts with blanks that bring it to the limit,
    // so that the bytes decide on which side of it the line feed falls; and
    // half the time the rest is a response to rewrite, ended by a line feed.
    std::string line;
    if ((data[0] & 0x80) != 0) {
        line.assign(ApprovalWire::maxLine - 64 + (data[0] & 0x3f), ' ');
    }
    const std::string_view rest = bytesOf(data + 1, size - 1);
    line += (data[0] & 0x40) != 0 ? responseText(rest) + "\n" : std::string(rest);

    static App app;
    const auto [response, received] = app.ask(wireRequest(), line);
    check(received == OrderedJSON::serializeCompact(wireRequest().toJSON()));
    check(decode<ApprovalRequest>(received) == wireRequest());
    const std::size_t end = line.find('\n');
    const bool framed = end != std::string::npos && end < ApprovalWire::maxLine;
    check(response == (framed ? decode<ApprovalResponse>(line.substr(0, end)) : std::nullopt));
    if (response) {
        checkWire(*response);
        checkOutput(wireRequest(), *response);
    }
}

// A request as the companion reads it, and every reply that could be built
// from it: whatever the sender put in it, the agent's reply stays JSON.
void request(std::string_view bytes) {
    const std::optional<ApprovalRequest> request = decode<ApprovalRequest>(bytes);
    if (!request) {
        return;
    }
    checkWire(*request);
    const std::size_t count = request->questions ? request->questions->size() : 0;
    for (const ApprovalDecision decision : {ApprovalDecision::allow, ApprovalDecision::allowAlways,
                                            ApprovalDecision::deny, ApprovalDecision::ask}) {
        ApprovalResponse response{decision, std::nullopt, std::vector<std::string>(count, "a/b")};
        checkOutput(*request, response);
        response.message = "";
        response.answers->push_back("one too many");
        checkOutput(*request, response);
    }
}

// Pieces cut at NUL bytes: the question list's text, the suggestions' text,
// the message and the answers; the first byte picks the agent, the decision,
// whether there is a message, and whether the questions are the list's own
// or a fixed pair (so the list's text need not match them).
void output(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return;
    }
    std::vector<std::string> pieces;
    const std::string_view rest = bytesOf(data + 1, size - 1);
    for (std::size_t start = 0; start <= rest.size();) {
        const std::size_t end = std::min(rest.find('\0', start), rest.size());
        pieces.emplace_back(rest.substr(start, end - start));
        start = end + 1;
    }
    pieces.resize(std::max<std::size_t>(pieces.size(), 3));

    ApprovalRequest request;
    request.id = "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0";
    request.source = allSources[data[0] % allSources.size()];
    request.sessionID = "s";
    request.cwd = "/";
    request.suggestions = pieces[1];
    request.questionsJSON = pieces[0];
    if ((data[0] & 0x80) != 0) {
        request.questions = {{"Same?", "", {{"y", ""}}, false}, {"Same?", "", {{"n", ""}}, false}};
    } else if (const auto list = OrderedJSON::tryParse(pieces[0])) {
        request.questions = Question::parse(&*list);
    }
    // Text that reaches a reply has come through the JSON decoder: valid UTF-8.
    ApprovalResponse response;
    response.decision = static_cast<ApprovalDecision>((data[0] / 16) % 4);
    if ((data[0] & 0x40) != 0) {
        response.message = Text::repairedUTF8(pieces[2]);
    }
    response.answers.emplace();
    for (std::size_t index = 3; index < pieces.size(); ++index) {
        response.answers->push_back(Text::repairedUTF8(pieces[index]));
    }
    checkOutput(request, response);
}

// The agent's question tool input: Question::parse keeps its promises, the
// parsed view reads as itself, and a question event relays the agent's list
// whole unless its text is too long.
void questions(std::string_view bytes) {
    const std::optional<JSONValue> value = OrderedJSON::tryParse(bytes);
    if (!value) {
        return;
    }
    const std::optional<std::vector<Question>> parsed = Question::parse(&*value);
    HookEvent event;
    event.name = "PreToolUse";
    event.sessionID = "s";
    event.cwd = "/Users/ann";
    event.toolName = "AskUserQuestion";
    event.toolInput.set("questions", *value);
    const std::optional<HookApproval::Questions> relayed = HookApproval::questions(event);
    if (!parsed) {
        check(!relayed);
        return;
    }
    check(!parsed->empty() && parsed->size() <= 4);
    JSONValue::Elements view;
    for (const Question& question : *parsed) {
        check(!question.question.empty() && !question.options.empty() &&
              question.options.size() <= 6);
        for (const QuestionOption& option : question.options) {
            check(!option.label.empty());
        }
        checkWire(question);
        view.push_back(question.toJSON());
    }
    const JSONValue list = JSONValue::array(std::move(view));
    check(Question::parse(&list) == parsed);

    const std::string json = OrderedJSON::serializeCompact(*value);
    check(relayed.has_value() == (json.size() < HookApproval::maxQuestionsJSON));
    if (!relayed) {
        return;
    }
    check(relayed->questions == *parsed && relayed->json == json);
    const std::optional<ApprovalRequest> request = HookApproval::request(event, Source::claude);
    check(request && request->questions == parsed && request->questionsJSON == json);
    checkWire(*request);
    checkOutput(*request, {ApprovalDecision::allow, std::nullopt,
                           std::vector<std::string>(parsed->size(), "x")});
}

} // namespace

// The first byte chooses the reader, and for the JSON readers whether the
// rest is their input as it is or rewrites a valid record (top bit set).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view rest = bytesOf(data + 1, size - 1);
    const bool rewrite = (data[0] & 0x80) != 0;
    switch (data[0] % 5) {
    case 0:
        reply(data + 1, size - 1);
        break;
    case 1:
        if (const auto response =
                decode<ApprovalResponse>(rewrite ? responseText(rest) : std::string(rest))) {
            checkWire(*response);
        }
        break;
    case 2:
        request(rewrite ? requestText(rest) : std::string(rest));
        break;
    case 3:
        output(data + 1, size - 1);
        break;
    default:
        questions(rewrite ? questionsText(rest) : std::string(rest));
        break;
    }
    return 0;
}
