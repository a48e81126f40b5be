// CLUMFileGrab: a camera whose images are the new files of a watched folder.
//
// It owns a "FileNameCollection" that watches the folder given by
// LoadParameters (newest first, announcing new files) and is that list's
// sink: each announced file is loaded and handed to the grab's own sinks
// through ImageGrabbed, on the list's watch thread. Grab can wait on the
// host's thread until a new file has come; the two threads meet only in
// the state, which NewFile sets to 0 and Grab polls every 100 ms.
//
// Its camera operations are its first declared virtual operations, so that
// in the primary table they follow the seven CObject slots in ICamera order:
// the ICamera request is answered with the primary pointer. Keep that
// declaration order.
//
// The list keeps its sinks without references: it is stopped first thing
// in FinalRelease, so that no NewFile can arrive while the grab goes away.
#pragma once

#include <mutex>

#include "components/ComponentBase.h"
#include "components/Relaxed.h"

class CLUMFileGrab final : public CObject<CLUMFileGrab>,
                           public IObjectInfoImpl<CLUMFileGrab>,
                           public _IFileNameCollectionEvent,
                           public IEventSourceImpl<CLUMFileGrab, &IID__ICameraEvents>,
                           public IUIPropertyPageSpecify,
                           public _FIRECameraEvents<CLUMFileGrab> {
public:
    // Camera operations, in ICamera order: declared before anything else.

    /// Starts the watch when it is not running; with `wait` non-zero waits
    /// for a new file, at most the grab time limit (E_FAIL when none came).
    virtual HRESULT Grab(int32_t mode, int16_t wait, IUnknown* reserved);
    /// Watches the folder (when not watching yet); the state becomes 2.
    virtual HRESULT Live();
    virtual HRESULT StopLive();
    /// 2 while the folder is watched, else 0.
    virtual HRESULT get_CameraState(CameraStateConstants* state);
    /// Entry `index` of the list (0 = the newest file), loaded from its file.
    virtual HRESULT get_Image(int32_t index, ILUM** image);
    virtual HRESULT get_NumberOfFrames(int32_t* count);
    virtual HRESULT put_NumberOfFrames(int32_t count) { return E_NOTIMPL; }
    /// The folder to watch.
    virtual HRESULT LoadParameters(tagREFString text);
    /// 10: the state; 11: nothing written; 13 and 14: 0; others E_FAIL.
    virtual HRESULT Inquire(int32_t id, int32_t* value);
    virtual HRESULT Control(int32_t id, int32_t value) { return E_FAIL; }

    LUM_OBJECT_UNKNOWN(CLUMFileGrab)

public:
    /// How long a waiting Grab waits for a new file, in milliseconds.
    static constexpr int32_t kDefaultGrabTimeLimit = 5000;

    HRESULT FinalConstruct() override;
    void FinalRelease() override;
    /// Guards the advise list: sinks are fired on the watch thread while the
    /// host may advise on its own.
    HRESULT Lock() override { return m_AdviseLock.Lock(); }
    HRESULT Unlock() override { return m_AdviseLock.Unlock(); }

    // _IFileNameCollectionEvent
    /// Loads the announced file and hands it to the sinks; a file that
    /// cannot be loaded is passed over.
    HRESULT NewFile(IUnknown* collection, IString* fileName) override;

    // IUIPropertyPageSpecify
    HRESULT GetPages(int32_t selector, INamedCollection** pages, IUnknown** reserved) override;

private:
    /// Loads a list entry from its file and hands out its image.
    HRESULT LoadEntry(IUnknown* entry, ILUM** image);
    int32_t FileCount();
    /// Puts an unloaded entry of the same file in place of a delivered one.
    void ForgetPixels(IUnknown* entry);

    SmartPtr<IFileNameCollection> m_Files;
    int32_t m_GrabTimeLimit = kDefaultGrabTimeLimit;
    Relaxed<int32_t> m_State{CameraStateIdle};
    SmartPtr<IString> m_Folder;
    CResourceLock m_AdviseLock;
    /// One entry is loaded at a time: NewFile (watch thread) and get_Image
    /// (host thread) may reach the same entry.
    std::mutex m_LoadLock;
};
