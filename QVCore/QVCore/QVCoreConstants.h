#pragma once

#include <QVCore/Export.h>
#include <QVPlatform/Foundation/Date.h>
#include <QVPlatform/Foundation/String.h>
#include <QVPlatform/Networking/URLRequest.h>

#include <atomic>
#include <cstdint>

// The vocabulary that the core shares with the kit's other modules. All texts are constants: they
// can be used before main() and after it, on any thread, and each is one object in the process, so
// that a module that posts a constant can be told from one that built an equal text.

// Notification names. A name that ends in a blank, or that is said to be a prefix, is never posted
// as it stands: the poster appends a suffix, and a listener registers for the full name.

/// A hit was sent. User info: "url" or "data".
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_HitSent;
/// Asks the core to send one HTTP request. User info is the request data: "url", optionally
/// "POSTData" and "HTTPURLResponse" (the marker for the consent queue), and whatever keys the
/// poster wants to find again in the answer. Post it with this very constant: a text that only
/// equals it is sent as well, and answered under "QVUnknownRequestType". Before the core starts
/// nobody hears it.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_HTTPRequest;
/// A transfer is over, however it ended; the answer or the error comes next. User info: "data", the
/// request, and "content", the operation's own request data, in which the answer's "content"
/// appears later.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_HTTPRequestSent;
/// A request was refused or failed. User info: the request data, plus "error" when the URL was
/// refused, or "data" (the request) and, if there was one, "HTTPURLResponse" when it failed. Not to
/// be posted again as it stands: see QVNetworkManager::requestDataFromUserInfo().
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_HTTPRequestError;
/// Answers HTTPRequest. User info: the request data plus "content", the body as text.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_HTTPResponse;
/// Prefix, followed by a partner's identifier: a request on behalf of that partner.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_HTTPPartnerRequest;
/// Prefix of the answer to a partner's request, with the same suffix.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_HTTPPartnerResponse;
/// Asks for a segment request; user info as for HTTPRequest. Post this very constant.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_SegmentRequest;
/// Answers SegmentRequest.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_SegmentResponse;
/// Prefix, followed by a configuration's name: downloads that configuration.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_ConfigurationRequest;
/// Prefix of the answer to a configuration request, with the same suffix.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_ConfigurationResponse;
/// For the consent module; the core neither posts nor handles it.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_VendorListRequest;
/// For the consent module; the core neither posts nor handles it.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_VendorListResponse;
/// The network became reachable.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_InternetUp;
/// The network became unreachable.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_InternetDown;
/// Follows every InternetUp and InternetDown. User info: "data", the name just posted.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_InternetChanged;
/// The browser user agent is known. User info: "data", the user agent.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_UserAgentAvailable;
/// The application went to the background.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_OnBackground;
/// The application came to the foreground.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_OnForeground;
/// A name for whatever has none, for the log.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_Unknown;
/// The consent module says no. In a kit that waits for its start this cancels the hits that wait,
/// which get neither answer nor error; it holds nothing, so that hits that are posted later go out
/// when a network comes up. A kit that was started goes on sending. The log hears no notification
/// from then on, until QVLogger::reinit(). docs/consent.md has what a no and a withdrawal take.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_StoppingTheSDK;
/// The consent module says yes: hits go, if nothing else holds them, those included that were
/// posted during a refusal. User info may carry "POSTData": text, or a number for its text, to
/// append to the body of every waiting hit, and not to those that are posted later; a hit without a
/// body gets
/// "(null)" in front of it. A kit without a consent module, which is known by its class name
/// (QVManagerStateWaitingForStart), has started by itself.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_StartingTheSDK;
/// Prefix: a configuration was replaced by a newer one. Two forms are in use: followed by the name,
/// and followed by "@" and the name.
QVCORE_EXPORT extern const QVPlatform::String kQVNotification_ConfigurationChanged;

// Keys of user info.

/// Payload: the user agent, the name in InternetChanged, a hit's data, the request that failed.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_DataKey;
/// The request's URL, as text.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_URLKey;
/// The request's body, as text; in StartingTheSDK text to append to every waiting request.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_POSTData;
/// In a request any value here sends it through the consent queue, which no consent holds; in the
/// notification of a failed request, the HTTP response.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_ResponseKey;
/// What was wrong with a refused request.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_ErrorKey;
/// Name of the notification that will carry the answer; set by the network manager.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_RequestType;
/// The body of an HTTP answer, as text.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_ContentKey;
/// Request number, unsigned 32-bit; set by the network manager.
QVCORE_EXPORT extern const QVPlatform::String kQVUserInfo_RequestID;

// Names of the variables in the core variables' store.

/// Reserved for the other modules; the core does not set it.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_UniqueID;
/// Advertising identifier, an upper-case UUID; absent where the device gives none.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_IDFA;
/// Identifier for vendor, an upper-case UUID; absent where the device gives none.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_IDFV;
/// Reserved for the other modules; the core does not set it.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_isTrackingEnabled;
/// Reserved for the other modules; the core does not set it.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_LimitUserTrackingEnabled;
/// Identifier of this installation, a random upper-case UUID kept in the user defaults.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_SDKID;
/// The advertising identifier where a real one is known, else the installation's.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_NormalizedID;
/// The web engine's user agent, once known.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_UserAgent;
/// The kind of network connection, from the first change of reachability on.
QVCORE_EXPORT extern const QVPlatform::String kQVPredefinedVariable_Connexion;

// Others.

/// Raw change of reachability; the object is the QVReachability. Posted on the default center, on
/// the main thread.
QVCORE_EXPORT extern const QVPlatform::String kQVReachabilityChangedNotification;
/// Text under "error" when a request's URL is refused.
QVCORE_EXPORT extern const QVPlatform::String kQVErrorMessageInvalidURL;
/// User-defaults key of the unique identifier; the core neither reads nor writes it.
QVCORE_EXPORT extern const QVPlatform::String kQVUserDefaultsKey_UniqueID;
/// User-defaults key of a configuration's offline copy: this, then its name.
QVCORE_EXPORT extern const QVPlatform::String kQVConfigurationFilesPrefix;
/// User-defaults key of a configuration's last download time: this, then its name.
QVCORE_EXPORT extern const QVPlatform::String kQVConfigurationFilesLastUpdated;
/// Name of the file of waiting hits in the private directory, and of the key inside it.
QVCORE_EXPORT extern const QVPlatform::String kQVFileOfflineHits;
/// Name of the kit's private directory in the Library directory.
QVCORE_EXPORT extern const QVPlatform::String kQVFilePrivateDocuments;

/// Timeout of every request: seconds without progress.
QVCORE_EXPORT extern const QVPlatform::TimeInterval kQVNetworkDefaultTimeout;

/// Cache policy of every request, read when the request is built; may be changed at any time.
QVCORE_EXPORT extern std::atomic<QVPlatform::URLRequestCachePolicy>
    kQVNetworkDefaultRequestCachePolicy;

/// Duration of a visit in seconds, published for the other modules; the core does not use it.
QVCORE_EXPORT extern const std::int32_t kQVVisitDurationDefaultValue;
