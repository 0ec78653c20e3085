#pragma once

/// The titles of the outcomes of transfers. Those of the requests for keys and addresses stand with their endpoints.
namespace Velmora::Titles {

inline constexpr auto UploadFailed = "File Failed to Upload";
inline constexpr auto UploadCancelled = "Upload Cancelled";
inline constexpr auto UploadNotSetUp = "Incorrect setup of UploadFile";

inline constexpr auto DownloadSucceeded = "Download Success";
inline constexpr auto DownloadFailed = "Unable to download file";
inline constexpr auto DownloadNotWritten = "Unable to write to target file";
inline constexpr auto DownloadCancelled = "Download Cancelled";
inline constexpr auto DownloadNotStarted = "Unable to Initiate Download";

} // namespace Velmora::Titles
