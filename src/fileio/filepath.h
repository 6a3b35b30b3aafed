// A path kept together with its parts (directory, name, extension).
#pragma once

class Filepath {
public:
    Filepath();
    Filepath(const Filepath& other);
    Filepath& operator=(const Filepath& other);
    virtual ~Filepath();

    void SetPath(const char* p);
    void Split();
    void Make();
    void Clear();
    bool IsClear() const;

    const char* GetPath() const { return path; }
    const char* GetShort() const { return shortName; }
    const char* GetExt() const { return ext; }

    // True when the extension equals e (with its dot), ignoring letter case.
    bool HasExt(const char* e) const;

    char path[260];
    char drive[3];
    char dir[256];
    char fname[256];
    char ext[256];
    char shortName[60];  // fname + ext, cut at 59 characters
};
