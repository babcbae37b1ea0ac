#include <QVCore/QVCoreConstants.h>

using QVPlatform::String;
using QVPlatform::operator""_string;  // NOLINT(misc-unused-using-decls)

// Notification names.

constexpr String kQVNotification_HitSent = "QVNotification: Hit Sent"_string;
constexpr String kQVNotification_HTTPRequest = "QVNotification: HTTP Request"_string;
constexpr String kQVNotification_HTTPRequestSent = "QVNotification: HTTP Request Sent"_string;
constexpr String kQVNotification_HTTPRequestError = "QVNotification: HTTP Request Error"_string;
constexpr String kQVNotification_HTTPResponse = "QVNotification: HTTP Response"_string;
constexpr String kQVNotification_HTTPPartnerRequest = "QVNotification: Partner Request: "_string;
constexpr String kQVNotification_HTTPPartnerResponse = "QVNotification: Partner Response: "_string;
constexpr String kQVNotification_SegmentRequest = "QVNotification: Segment Request"_string;
constexpr String kQVNotification_SegmentResponse = "QVNotification: Segment Response"_string;
constexpr String kQVNotification_ConfigurationRequest =
    "QVNotification: Privacy Configuration Request"_string;
constexpr String kQVNotification_ConfigurationResponse =
    "QVNotification: Privacy Configuration Response"_string;
constexpr String kQVNotification_VendorListRequest =
    "QVNotification: IAB Vendor List Request"_string;
constexpr String kQVNotification_VendorListResponse =
    "QVNotification: IAB Vendor List Response"_string;
constexpr String kQVNotification_InternetUp = "QVNotification: Internet Up"_string;
constexpr String kQVNotification_InternetDown = "QVNotification: Internet Down"_string;
constexpr String kQVNotification_InternetChanged = "QVNotification: Internet Changed"_string;
constexpr String kQVNotification_UserAgentAvailable = "QVNotification: User Agent Available"_string;
constexpr String kQVNotification_OnBackground = "QVNotification On Background"_string;
constexpr String kQVNotification_OnForeground = "QVNotification On Foreground"_string;
constexpr String kQVNotification_Unknown = "QVNotification: Unknown notification"_string;
constexpr String kQVNotification_StoppingTheSDK = "QVNotification: Stopping SDK"_string;
constexpr String kQVNotification_StartingTheSDK = "QVNotification: Starting SDK"_string;
constexpr String kQVNotification_ConfigurationChanged =
    "QVNotification: Configuration changed"_string;

// Keys of user info.

constexpr String kQVUserInfo_DataKey = "data"_string;
constexpr String kQVUserInfo_URLKey = "url"_string;
constexpr String kQVUserInfo_POSTData = "POSTData"_string;
constexpr String kQVUserInfo_ResponseKey = "HTTPURLResponse"_string;
constexpr String kQVUserInfo_ErrorKey = "error"_string;
constexpr String kQVUserInfo_RequestType = "RequestType"_string;
constexpr String kQVUserInfo_ContentKey = "content"_string;
constexpr String kQVUserInfo_RequestID = "ID"_string;

// Names of the variables in the core variables' store.

constexpr String kQVPredefinedVariable_UniqueID = "#QV_UNIQUEID#"_string;
constexpr String kQVPredefinedVariable_IDFA = "#QV_IDFA#"_string;
constexpr String kQVPredefinedVariable_IDFV = "#QV_IDFV#"_string;
constexpr String kQVPredefinedVariable_isTrackingEnabled = "#QV_IS_TRACKING_ENABLED#"_string;
constexpr String kQVPredefinedVariable_LimitUserTrackingEnabled =
    "#QV_LIMIT_USER_TRACKING_ENABLED#"_string;
constexpr String kQVPredefinedVariable_SDKID = "#QV_SDK_ID#"_string;
constexpr String kQVPredefinedVariable_NormalizedID = "#QV_NORMALIZED_ID#"_string;
constexpr String kQVPredefinedVariable_UserAgent = "#QV_USER_AGENT#"_string;
constexpr String kQVPredefinedVariable_Connexion = "#QV_CONNEXION#"_string;

// Others.

constexpr String kQVReachabilityChangedNotification = "kQVReachabilityChangedNotification"_string;
constexpr String kQVErrorMessageInvalidURL = "Error : invalid URL"_string;
constexpr String kQVUserDefaultsKey_UniqueID = "qv_unique_id"_string;
constexpr String kQVConfigurationFilesPrefix = "configuration_"_string;
constexpr String kQVConfigurationFilesLastUpdated = "qv_last_update_for_configuration_"_string;
constexpr String kQVFileOfflineHits = "offlineHits"_string;
constexpr String kQVFilePrivateDocuments = "QVPrivateDocuments"_string;

const QVPlatform::TimeInterval kQVNetworkDefaultTimeout = 5.0;
constinit std::atomic<QVPlatform::URLRequestCachePolicy> kQVNetworkDefaultRequestCachePolicy =
    QVPlatform::URLRequestCachePolicy::kReloadIgnoringLocalCacheData;
const std::int32_t kQVVisitDurationDefaultValue = 1800;
