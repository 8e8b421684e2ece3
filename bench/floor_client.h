// What both floors are built on: one socket to the server, and the texts of Windows.
//
// Everything that fails throws std::runtime_error. One thread.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
// winsock2.h stands before all others of Windows.
#include <windows.h>

#include <array>
#include <boost/json.hpp>
#include <chrono>
#include <cstdlib>
#include <initializer_list>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace dorvo::bench {

namespace json = boost::json;
constexpr std::size_t blockSize = 131072;
constexpr std::array<unsigned char, 16> key{1}, iv{2};

[[noreturn]] inline void fail(const std::string& what) {
    throw std::runtime_error(what);
}

inline std::string utf8(const std::wstring& text) {
    std::string out(text.size() * 3 + 1, '\0');
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(),
                            static_cast<int>(out.size()), nullptr, nullptr);
    out.resize(static_cast<std::size_t>(size));
    return out;
}

inline std::wstring wide(const std::string& text, UINT codePage) {
    std::wstring out(text.size(), L'\0');
    const int size = MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()),
                                         out.data(), static_cast<int>(out.size()));
    out.resize(static_cast<std::size_t>(size));
    return out;
}

inline HANDLE openFile(const std::wstring& path, DWORD access, DWORD how) {
    HANDLE file = CreateFileW(path.c_str(), access, FILE_SHARE_READ, nullptr, how,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        fail("cannot open " + utf8(path));
    return file;
}

inline std::size_t write(HANDLE file, const void* data, std::size_t size) {
    DWORD written = 0;
    if (size != 0 &&
        (!WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr) || written != size))
        fail("cannot write");
    return size;
}

// The package on its way, deleted with this.
class TemporaryFile {
public:
    TemporaryFile() {
        std::array<wchar_t, MAX_PATH> folder;
        GetTempPathW(MAX_PATH, folder.data());
        path_ = folder.data() + std::wstring(L"floor.package");
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { DeleteFileW(path_.c_str()); }

    const std::wstring& path() const { return path_; }

private:
    std::wstring path_;
};

// One connection. Whoever writes may be another thread than the one that takes the answers.
class Client {
public:
    Client(const char* host, const char* port) : host_(host) {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (getaddrinfo(host, port, &hints, &found) != 0)
            fail("no such host");
        socket_ = socket(found->ai_family, found->ai_socktype, 0);
        const bool connected =
            connect(socket_, found->ai_addr, static_cast<int>(found->ai_addrlen)) == 0;
        freeaddrinfo(found);
        if (!connected)
            fail("the server does not listen");
        const BOOL on = TRUE;
        setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
                   sizeof on);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client() { closesocket(socket_); }

    std::string post(const std::string& path, const json::object& body) {
        const std::string text = json::serialize(body);
        write({head(path, "application/json", text.size()), text});
        return answer();
    }

    void post(const std::string& path, const std::string& type, const std::string& prefix,
              std::string_view data, const std::string& suffix) {
        write(
            {head(path, type, prefix.size() + data.size() + suffix.size()), prefix, data, suffix});
        answer();
    }

    // What stands before a body of that length.
    std::string head(const std::string& path, const std::string& type, std::size_t length) const {
        std::string text = "POST /dorvo/" + path + " HTTP/1.1\r\nHost: " + host_ +
                           "\r\nContent-Type: " + type +
                           "\r\nContent-Length: " + std::to_string(length) + "\r\n";
        if (!cookie_.empty())
            text += "Cookie: " + cookie_ + "\r\n";
        return text + "\r\n";
    }

    void write(std::initializer_list<std::string_view> texts) {
        std::array<WSABUF, 4> parts;
        std::size_t size = 0;
        DWORD count = 0;
        for (const std::string_view text : texts) {
            parts.at(count++) = buffer(text);
            size += text.size();
        }
        DWORD sent = 0;
        if (WSASend(socket_, parts.data(), count, &sent, 0, nullptr, nullptr) != 0)
            fail("send failed");
        if (sent != size)
            fail("short send");
    }

    // The body of the next answer.
    std::string answer() {
        std::size_t end;
        while ((end = received_.find("\r\n\r\n")) == std::string::npos)
            receive();
        const std::size_t length = std::strtoul(header(end, "content-length").c_str(), nullptr, 10);
        while (received_.size() < end + 4 + length)
            receive();
        if (received_.compare(9, 3, "200") != 0)
            fail(received_.substr(0, end + 4 + length));
        if (const std::string set = header(end, "set-cookie"); !set.empty())
            cookie_ = set;
        std::string body = received_.substr(end + 4, length);
        received_.erase(0, end + 4 + length);
        return body;
    }

private:
    // Of a text that lives as long as the structure.
    static WSABUF buffer(std::string_view text) {
        // cppcheck-suppress invalidLifetime
        return {static_cast<ULONG>(text.size()), const_cast<char*>(text.data())};
    }

    void receive() {
        std::array<char, 65536> chunk;
        const int size = recv(socket_, chunk.data(), static_cast<int>(chunk.size()), 0);
        if (size <= 0)
            fail("the server closed");
        received_.append(chunk.data(), static_cast<std::size_t>(size));
    }

    // A field of the head that ends there.
    std::string header(std::size_t end, const std::string& name) const {
        const std::string& head = received_;
        for (std::size_t line = head.find("\r\n"); line < end; line = head.find("\r\n", line + 2)) {
            const std::size_t colon = head.find(':', line);
            if (colon < end && colon - line - 2 == name.size() &&
                _strnicmp(head.data() + line + 2, name.data(), name.size()) == 0)
                return head.substr(colon + 2, head.find("\r\n", colon) - colon - 2);
        }
        return {};
    }

    SOCKET socket_;
    std::string host_, cookie_, received_;
};

// Logs in with the first of so many arguments, HOST PORT USER PASSWORD, and does the work, which
// gets the arguments (from 1 on) and whether --ahead stood before them, and returns what it has to
// say. Prints that and the seconds. The exit code.
template <class Work>
int runFloor(int count, char** arguments, int wanted, Work work) {
    const bool ahead = count > 1 && std::string_view(arguments[1]) == "--ahead";
    char** given = arguments + (ahead ? 1 : 0);
    if (count - 1 - (ahead ? 1 : 0) != wanted) {
        std::cerr << arguments[0] << ": wrong number of arguments, see the source's first lines\n";
        return 2;
    }
    WSADATA data;
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0)
        return 1;
    try {
        const auto start = std::chrono::steady_clock::now();
        Client client(given[1], given[2]);
        client.post("WebServer/user/Login.php",
                    {{"user", given[3]}, {"password", given[4]}, {"machine", "floor"}});
        const std::string said = work(client, given, ahead);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        std::cout << said << ", " << seconds.count() << " s\n";
    } catch (const std::exception& error) {
        std::cerr << arguments[0] << ": " << error.what() << '\n';
        return 1;
    }
    return 0;
}

}  // namespace dorvo::bench
