#include <QVCore/QVCoreConstants.h>

using QVPlatform::String;

// A constant and the storage of its text.
#define QV_TEXT(name, text)                    \
  namespace {                                  \
  constinit String::Literal name##_text{text}; \
  }                                            \
  constexpr String name { name##_text }

// Notification names.

QV_TEXT(kQVNotification_HitSent, "QVNotification: Hit Sent");
QV_TEXT(kQVNotification_HTTPRequest, "QVNotification: HTTP Request");
QV_TEXT(kQVNotification_HTTPRequestSent, "QVNotification: HTTP Request Sent");
QV_TEXT(kQVNotification_HTTPRequestError, "QVNotification: HTTP Request Error");
QV_TEXT(kQVNotification_HTTPResponse, "QVNotification: HTTP Response");
QV_TEXT(kQVNotification_HTTPPartnerRequest, "QVNotification: Partner Request: ");
QV_TEXT(kQVNotification_HTTPPartnerResponse, "QVNotification: Partner Response: ");
QV_TEXT(kQVNotification_SegmentRequest, "QVNotification: Segment Request");
QV_TEXT(kQVNotification_SegmentResponse, "QVNotification: Segment Response");
QV_TEXT(kQVNotification_ConfigurationRequest, "QVNotification: Privacy Configuration Request");
QV_TEXT(kQVNotification_ConfigurationResponse, "QVNotification: Privacy Configuration Response");
QV_TEXT(kQVNotification_VendorListRequest, "QVNotification: IAB Vendor List Request");
QV_TEXT(kQVNotification_VendorListResponse, "QVNotification: IAB Vendor List Response");
QV_TEXT(kQVNotification_InternetUp, "QVNotification: Internet Up");
QV_TEXT(kQVNotification_InternetDown, "QVNotification: Internet Down");
QV_TEXT(kQVNotification_InternetChanged, "QVNotification: Internet Changed");
QV_TEXT(kQVNotification_UserAgentAvailable, "QVNotification: User Agent Available");
QV_TEXT(kQVNotification_OnBackground, "QVNotification On Background");
QV_TEXT(kQVNotification_OnForeground, "QVNotification On Foreground");
QV_TEXT(kQVNotification_Unknown, "QVNotification: Unknown notification");
QV_TEXT(kQVNotification_StoppingTheSDK, "QVNotification: Stopping SDK");
QV_TEXT(kQVNotification_StartingTheSDK, "QVNotification: Starting SDK");
QV_TEXT(kQVNotification_ConfigurationChanged, "QVNotification: Configuration changed");

// Keys of user info.

QV_TEXT(kQVUserInfo_DataKey, "data");
QV_TEXT(kQVUserInfo_URLKey, "url");
QV_TEXT(kQVUserInfo_POSTData, "POSTData");
QV_TEXT(kQVUserInfo_ResponseKey, "HTTPURLResponse");
QV_TEXT(kQVUserInfo_ErrorKey, "error");
QV_TEXT(kQVUserInfo_RequestType, "RequestType");
QV_TEXT(kQVUserInfo_ContentKey, "content");
QV_TEXT(kQVUserInfo_RequestID, "ID");

// Names of the variables in the core variables' store.

QV_TEXT(kQVPredefinedVariable_UniqueID, "#QV_UNIQUEID#");
QV_TEXT(kQVPredefinedVariable_IDFA, "#QV_IDFA#");
QV_TEXT(kQVPredefinedVariable_IDFV, "#QV_IDFV#");
QV_TEXT(kQVPredefinedVariable_isTrackingEnabled, "#QV_IS_TRACKING_ENABLED#");
QV_TEXT(kQVPredefinedVariable_LimitUserTrackingEnabled, "#QV_LIMIT_USER_TRACKING_ENABLED#");
QV_TEXT(kQVPredefinedVariable_SDKID, "#QV_SDK_ID#");
QV_TEXT(kQVPredefinedVariable_NormalizedID, "#QV_NORMALIZED_ID#");
QV_TEXT(kQVPredefinedVariable_UserAgent, "#QV_USER_AGENT#");
QV_TEXT(kQVPredefinedVariable_Connexion, "#QV_CONNEXION#");

// Others.

QV_TEXT(kQVReachabilityChangedNotification, "kQVReachabilityChangedNotification");
QV_TEXT(kQVErrorMessageInvalidURL, "Error : invalid URL");
QV_TEXT(kQVUserDefaultsKey_UniqueID, "qv_unique_id");
QV_TEXT(kQVConfigurationFilesPrefix, "configuration_");
QV_TEXT(kQVConfigurationFilesLastUpdated, "qv_last_update_for_configuration_");
QV_TEXT(kQVFileOfflineHits, "offlineHits");
QV_TEXT(kQVFilePrivateDocuments, "QVPrivateDocuments");

const QVPlatform::TimeInterval kQVNetworkDefaultTimeout = 5.0;
constinit std::atomic<QVPlatform::URLRequestCachePolicy> kQVNetworkDefaultRequestCachePolicy =
    QVPlatform::URLRequestCachePolicy::reloadIgnoringLocalCacheData;
const std::int32_t kQVVisitDurationDefaultValue = 1800;
