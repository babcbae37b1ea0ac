"""Names of notifications.

One that ends in a colon and a blank, and the three of configurations, are followed by a name of the
program's: HTTP_PARTNER_REQUEST + "partner".
"""

HIT_SENT = "QVNotification: Hit Sent"
HTTP_REQUEST = "QVNotification: HTTP Request"
HTTP_REQUEST_SENT = "QVNotification: HTTP Request Sent"
HTTP_REQUEST_ERROR = "QVNotification: HTTP Request Error"
HTTP_RESPONSE = "QVNotification: HTTP Response"
HTTP_PARTNER_REQUEST = "QVNotification: Partner Request: "
HTTP_PARTNER_RESPONSE = "QVNotification: Partner Response: "
SEGMENT_REQUEST = "QVNotification: Segment Request"
SEGMENT_RESPONSE = "QVNotification: Segment Response"
CONFIGURATION_REQUEST = "QVNotification: Privacy Configuration Request"
CONFIGURATION_RESPONSE = "QVNotification: Privacy Configuration Response"
CONFIGURATION_CHANGED = "QVNotification: Configuration changed"
INTERNET_UP = "QVNotification: Internet Up"
INTERNET_DOWN = "QVNotification: Internet Down"
INTERNET_CHANGED = "QVNotification: Internet Changed"
USER_AGENT_AVAILABLE = "QVNotification: User Agent Available"
ON_BACKGROUND = "QVNotification On Background"
ON_FOREGROUND = "QVNotification On Foreground"
STARTING_THE_SDK = "QVNotification: Starting SDK"
STOPPING_THE_SDK = "QVNotification: Stopping SDK"
